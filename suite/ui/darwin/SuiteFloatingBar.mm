// The floating bar: one compact line per member, or every value when expanded, on the shared
// floating panel. Its corner and its expansion are the suite's shared settings, so it opens the same
// way whichever member hosts. Compiled with ARC.
#include <algorithm>
#include <cmath>
#include <vector>

#include "FloatingPanel.hpp"
#include "SuiteViews.hpp"
#include "suite/ui/SuiteParticipant.hpp"

namespace {

constexpr CGFloat padding = 8;
constexpr CGFloat cornerRadius = 10;
constexpr CGFloat minimumWidth = 200;
// Dim enough to read what is behind it, clear enough to read at a glance.
constexpr double idleAlpha = 0.85;

NSImage* roundedMask() { return kestrow::suite::mac::roundedMask(cornerRadius); }

NSButton* makeIconButton(KestrowSuiteActionTarget* target) {
    NSButton* button = [NSButton buttonWithImage:[[NSImage alloc] initWithSize:NSMakeSize(12, 12)]
                                          target:target
                                          action:@selector(perform:)];
    button.bordered = NO;
    button.contentTintColor = NSColor.secondaryLabelColor;
    return button;
}

void applyControl(NSButton* button, const kestrow::suite::SuiteControl& control) {
    using namespace kestrow::suite;
    button.image = mac::symbolImage(control.symbol, control.accessibilityLabel, NSFont.smallSystemFontSize);
    [button setAccessibilityLabel:mac::toNSString(control.accessibilityLabel)];
    button.toolTip = mac::toNSString(control.title);
}

kestrow::suite::Size toSize(NSSize size) {
    // Whole points, so that the panel's frame does not drift by fractions on every update.
    return {std::ceil(size.width), std::ceil(size.height)};
}

} // namespace

@interface KestrowSuiteFloatingBarView : NSVisualEffectView
- (instancetype)initWithHost:(kestrow::suite::SuiteHost*)host;
@property(nonatomic) BOOL expanded;
@property(nonatomic) std::function<void(bool hovering)> onHover;
// Lists the members again; NO when every line reads as before, so nothing was rebuilt.
- (BOOL)reload;
// The size the bar needs collapsed and expanded, with the members as they are now.
- (kestrow::suite::Size)sizeExpanded:(BOOL)expanded;
@end

@implementation KestrowSuiteFloatingBarView {
    kestrow::suite::SuiteHost* _host;
    NSView* _body;
    NSStackView* _compact;
    NSStackView* _detailed;
    NSStackView* _controls;
    NSButton* _expandButton;
    NSButton* _hideButton;
    KestrowSuiteActionTarget* _expandTarget;
    KestrowSuiteActionTarget* _hideTarget;
    NSTrackingArea* _tracking;
    kestrow::suite::SuiteBarScreen _screen; // what the bar shows now
}

- (instancetype)initWithHost:(kestrow::suite::SuiteHost*)host {
    using namespace kestrow::suite;
    if (!(self = [super initWithFrame:NSZeroRect])) return nil;
    _host = host;
    self.material = NSVisualEffectMaterialPopover; // follows light and dark appearance
    self.blendingMode = NSVisualEffectBlendingModeBehindWindow;
    self.state = NSVisualEffectStateActive; // the bar's window is never key, yet should not look dimmed
    self.maskImage = roundedMask();
    [self setAccessibilityRole:NSAccessibilityGroupRole];

    _expandTarget = [[KestrowSuiteActionTarget alloc]
        initWithAction:[host](id) { host->setFloatingExpanded(!host->floatingExpanded()); }];
    _hideTarget = [[KestrowSuiteActionTarget alloc] initWithAction:[host](id) { host->setFloatingVisible(false); }];
    _expandButton = makeIconButton(_expandTarget);
    _hideButton = makeIconButton(_hideTarget);
    _controls = [NSStackView stackViewWithViews:@[ _expandButton, _hideButton ]];
    _controls.orientation = NSUserInterfaceLayoutOrientationVertical;
    _controls.spacing = 4;
    _controls.translatesAutoresizingMaskIntoConstraints = NO;
    [self addSubview:_controls];
    [NSLayoutConstraint activateConstraints:@[
        [_controls.topAnchor constraintEqualToAnchor:self.topAnchor constant:padding],
        [_controls.trailingAnchor constraintEqualToAnchor:self.trailingAnchor constant:-padding],
    ]];
    [self reload];
    return self;
}

- (BOOL)mouseDownCanMoveWindow {
    return YES;
}

- (NSStackView*)bodyExpanded:(BOOL)expanded {
    using namespace kestrow::suite;
    NSStackView* body = [[NSStackView alloc] initWithFrame:NSZeroRect];
    body.orientation = NSUserInterfaceLayoutOrientationVertical;
    body.alignment = NSLayoutAttributeLeading;
    body.spacing = expanded ? 4 : 0;
    const CGFloat size = NSFont.smallSystemFontSize;
    for (const SuiteMemberRow& member : _screen.members) {
        const SuiteRowLine line = member.line;
        KestrowSuiteRowView* view = [[KestrowSuiteRowView alloc] initWithMember:member
                                                                        compact:YES
                                                                         action:[line] { mac::openMember(line); }];
        view.dragsWindow = YES;
        [body addArrangedSubview:view];
        if (!expanded) continue;
        // Every value on its own line under the member: label on the left, figure on the right.
        for (const SuiteValueLine& value : member.values) {
            NSTextField* label = mac::makeLabel(mac::toNSString(value.label), [NSFont systemFontOfSize:size],
                                                NSColor.secondaryLabelColor);
            NSTextField* figure = mac::makeLabel(
                mac::toNSString(value.value), [NSFont monospacedDigitSystemFontOfSize:size weight:NSFontWeightMedium],
                value.level == GlanceLevel::ok ? NSColor.labelColor : mac::levelTint(value.level, true));
            NSStackView* metricLine = [NSStackView stackViewWithViews:@[ label, mac::makeSpacer(), figure ]];
            metricLine.orientation = NSUserInterfaceLayoutOrientationHorizontal;
            metricLine.edgeInsets = NSEdgeInsetsMake(0, 24, 0, 4); // under the name, past the glyph
            for (NSView* part in @[ label, figure ])
                [part setAccessibilityElement:NO];
            [metricLine setAccessibilityElement:YES];
            [metricLine setAccessibilityRole:NSAccessibilityStaticTextRole];
            [metricLine setAccessibilityLabel:mac::toNSString(value.accessibilityLabel)];
            [body addArrangedSubview:metricLine];
        }
    }
    for (NSView* view in body.arrangedSubviews)
        [view.widthAnchor constraintEqualToAnchor:body.widthAnchor].active = YES;
    return body;
}

- (BOOL)reload {
    kestrow::suite::SuiteBarScreen screen = kestrow::suite::mac::barScreen(*_host);
    [self setAccessibilityLabel:kestrow::suite::mac::toNSString(screen.accessibilityLabel)];
    applyControl(_hideButton, screen.hide);
    // Records are renewed every few seconds with the same figures: keep the views, the pointer's
    // highlight and a click in progress unless a line reads differently.
    if (_body != nil && screen.members == _screen.members) return NO;
    _screen = std::move(screen);
    _compact = [self bodyExpanded:NO];
    _detailed = [self bodyExpanded:YES];
    [self showBody];
    return YES;
}

- (void)setExpanded:(BOOL)expanded {
    _expanded = expanded;
    [self showBody];
}

- (void)showBody {
    using namespace kestrow::suite;
    [_body removeFromSuperview];
    _body = _expanded ? _detailed : _compact;
    _body.translatesAutoresizingMaskIntoConstraints = NO;
    [self addSubview:_body];
    [NSLayoutConstraint activateConstraints:@[
        [_body.leadingAnchor constraintEqualToAnchor:self.leadingAnchor constant:padding],
        [_body.topAnchor constraintEqualToAnchor:self.topAnchor constant:padding],
        [_body.trailingAnchor constraintEqualToAnchor:_controls.leadingAnchor constant:-padding],
    ]];
    // The expand control as the bar is drawn now, which may be ahead of the shared settings.
    applyControl(_expandButton, SuiteScreens::bar({}, _expanded, NumberLocale{}).expand);
}

- (kestrow::suite::Size)sizeExpanded:(BOOL)expanded {
    const NSSize body = (expanded ? _detailed : _compact).fittingSize;
    const NSSize controls = _controls.fittingSize;
    const CGFloat width = std::max(minimumWidth, padding + body.width + padding + controls.width + padding);
    const CGFloat height = padding + std::max(body.height, controls.height) + padding;
    return toSize(NSMakeSize(width, height));
}

- (void)updateTrackingAreas {
    _tracking = kestrow::suite::mac::trackHover(self, _tracking);
    [super updateTrackingAreas];
}

- (void)mouseEntered:(NSEvent*)event {
    (void)event;
    if (self.onHover) self.onHover(true);
}

- (void)mouseExited:(NSEvent*)event {
    (void)event;
    if (self.onHover) self.onHover(false);
}

@end

namespace kestrow::suite::mac {

namespace {

class SuiteFloatingBarPanel final : public SuiteFloatingPanel {
public:
    explicit SuiteFloatingBarPanel(SuiteHost& host) : view_([[KestrowSuiteFloatingBarView alloc] initWithHost:&host]) {
        std::optional<Point> corner;
        if (const auto& stored = host.participant().settings().floatingTopLeft)
            corner = Point{stored->first, stored->second};
        SuiteParticipant& participant = host.participant();
        panel_ = std::make_unique<FloatingPanel>(
            view_, [view_ sizeExpanded:NO], [view_ sizeExpanded:YES], corner,
            [&participant](Point topLeft) { participant.floatingBarMoved(topLeft); }, idleAlpha);
        view_.onHover = [panel = panel_.get()](bool hovering) { panel->setHovering(hovering); };
    }

    ~SuiteFloatingBarPanel() override { tearDown(); }

    void show() override {
        if (panel_) panel_->show();
    }
    void hide() override {
        if (panel_) panel_->hide();
    }
    bool isVisible() const override { return panel_ && panel_->isVisible(); }

    void setExpanded(bool expanded) override {
        if (!panel_) return;
        view_.expanded = expanded;
        panel_->setExpanded(expanded);
    }

    void update() override {
        if (!panel_ || ![view_ reload]) return;
        panel_->setSizes([view_ sizeExpanded:NO], [view_ sizeExpanded:YES]);
    }

    void tearDown() override {
        if (!panel_) return;
        view_.onHover = nullptr;
        panel_->tearDown();
        panel_.reset();
        view_ = nil;
    }

private:
    KestrowSuiteFloatingBarView* view_;
    std::unique_ptr<FloatingPanel> panel_;
};

} // namespace

std::unique_ptr<SuiteFloatingPanel> makeSuiteFloatingBar(SuiteHost& host) {
    return std::make_unique<SuiteFloatingBarPanel>(host);
}

} // namespace kestrow::suite::mac
