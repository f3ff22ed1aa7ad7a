// The monitor's own floating monitor: a small bar (memory gauge and percentage, CPU) that expands
// into a table with the grades, in the shared floating panel. It shows while the user wants it and
// the suite is inactive (the suite's own floating bar takes its place otherwise), follows the chosen
// theme and look, tells the store when the pointer is over it, and keeps its corner under
// "floating.topLeft" in the standard user defaults.
#include "MacFrontEnd.hpp"

#include <optional>
#include <string>

#include "MonitorViews.hpp"
#include "app/screens/FloatingMonitorStyle.hpp"
#include "app/screens/MonitorScreens.hpp"
#include "app/startup/SuiteLaunch.hpp"
#include "suite/ui/darwin/FloatingPanel.hpp"

namespace {

using brimlet::mac::figureFont;
using brimlet::mac::makeLabel;
using brimlet::mac::symbolImage;
using brimlet::mac::toNSString;

constexpr kestrow::suite::Size barSize{232, 34};
constexpr kestrow::suite::Size expandedSize{280, 176};
constexpr CGFloat cornerRadius = 10;

NSImage* roundedMask() { return kestrow::suite::mac::roundedMask(cornerRadius); }

NSAppearance* appearanceFor(brimlet::FloatingTheme theme) {
    switch (theme.value) {
    case brimlet::FloatingTheme::system:
        return nil; // follows the system
    case brimlet::FloatingTheme::light:
        return [NSAppearance appearanceNamed:NSAppearanceNameAqua];
    case brimlet::FloatingTheme::dark:
        return [NSAppearance appearanceNamed:NSAppearanceNameDarkAqua];
    }
    return nil;
}

NSButton* chevronButton(id target, SEL action) {
    NSButton* button = [NSButton buttonWithImage:[[NSImage alloc] initWithSize:NSMakeSize(14, 14)]
                                          target:target
                                          action:action];
    button.bordered = NO;
    button.contentTintColor = NSColor.secondaryLabelColor;
    button.translatesAutoresizingMaskIntoConstraints = NO;
    return button;
}

void applyControl(NSButton* button, const brimlet::MonitorControl& control) {
    button.image = symbolImage(toNSString(control.symbol), toNSString(control.spokenLabel()));
    button.toolTip = toNSString(control.title);
    button.accessibilityLabel = toNSString(control.spokenLabel());
}

void pinToEdges(NSView* view, NSView* container, CGFloat horizontal, CGFloat vertical) {
    view.translatesAutoresizingMaskIntoConstraints = NO;
    [NSLayoutConstraint activateConstraints:@[
        [view.leadingAnchor constraintEqualToAnchor:container.leadingAnchor constant:horizontal],
        [view.trailingAnchor constraintEqualToAnchor:container.trailingAnchor constant:-horizontal],
        [view.topAnchor constraintEqualToAnchor:container.topAnchor constant:vertical],
    ]];
}

} // namespace

@interface KBFloatingMonitorView : NSView
- (instancetype)initWithStore:(brimlet::MonitorStore&)store;
- (void)applyLook:(brimlet::FloatingLook)look expanded:(BOOL)expanded;
- (void)refresh;
- (void)detach;
@end

@implementation KBFloatingMonitorView {
    brimlet::MonitorStore* _store;
    NSVisualEffectView* _glass;
    NSBox* _solid;
    NSStackView* _bar;
    NSStackView* _table;
    KBGaugeView* _barGauge;
    NSImageView* _chip;
    NSTextField* _barMemory;
    NSImageView* _cpuSymbol;
    NSTextField* _barCPU;
    NSButton* _expand;
    NSTextField* _title;
    NSButton* _collapse;
    NSMutableArray<KBMetricRowView*>* _rows;
    brimlet::FloatingMonitorScreen _screen;
}

- (instancetype)initWithStore:(brimlet::MonitorStore&)store {
    if (!(self = [super initWithFrame:NSMakeRect(0, 0, barSize.width, barSize.height)])) return nil;
    _store = &store;
    self.autoresizingMask = NSViewWidthSizable | NSViewHeightSizable;

    _glass = [[NSVisualEffectView alloc] initWithFrame:self.bounds];
    _glass.material = NSVisualEffectMaterialPopover;
    _glass.blendingMode = NSVisualEffectBlendingModeBehindWindow;
    _glass.state = NSVisualEffectStateActive;
    _glass.maskImage = roundedMask();
    _glass.autoresizingMask = NSViewWidthSizable | NSViewHeightSizable;
    _solid = [[NSBox alloc] initWithFrame:self.bounds];
    _solid.boxType = NSBoxCustom;
    _solid.fillColor = NSColor.windowBackgroundColor;
    _solid.borderColor = NSColor.separatorColor;
    _solid.borderWidth = 1;
    _solid.cornerRadius = cornerRadius;
    _solid.titlePosition = NSNoTitle;
    _solid.autoresizingMask = NSViewWidthSizable | NSViewHeightSizable;
    _solid.hidden = YES;
    [self addSubview:_glass];
    [self addSubview:_solid];

    // The bar: memory gauge and percentage, CPU, and the control that expands it.
    _chip = brimlet::mac::symbolView(@"memorychip");
    _barGauge = [[KBGaugeView alloc] initWithFrame:NSZeroRect];
    _barGauge.translatesAutoresizingMaskIntoConstraints = NO;
    [NSLayoutConstraint activateConstraints:@[
        [_barGauge.widthAnchor constraintEqualToConstant:56], [_barGauge.heightAnchor constraintEqualToConstant:6]
    ]];
    _barMemory = makeLabel(@"", figureFont(12, NSFontWeightSemibold), NSColor.labelColor);
    _cpuSymbol = brimlet::mac::symbolView(@"cpu");
    _barCPU = makeLabel(@"", figureFont(12, NSFontWeightSemibold), NSColor.labelColor);
    _expand = chevronButton(self, @selector(expand:));
    _bar = [NSStackView stackViewWithViews:@[ _chip, _barGauge, _barMemory, _cpuSymbol, _barCPU ]];
    _bar.spacing = 6;
    [_bar addView:_expand inGravity:NSStackViewGravityTrailing];
    [self addSubview:_bar];
    pinToEdges(_bar, self, 10, 7);

    // The table: the figures with their grades.
    _title = makeLabel(@"", brimlet::mac::systemFont(11, NSFontWeightSemibold), NSColor.secondaryLabelColor);
    _collapse = chevronButton(self, @selector(collapse:));
    NSStackView* header = [NSStackView stackViewWithViews:@[ _title ]];
    [header addView:_collapse inGravity:NSStackViewGravityTrailing];
    _rows = [NSMutableArray array];
    _table = [NSStackView stackViewWithViews:@[ header ]];
    _table.orientation = NSUserInterfaceLayoutOrientationVertical;
    _table.spacing = 8;
    _table.hidden = YES;
    [header.widthAnchor constraintEqualToAnchor:_table.widthAnchor].active = YES;
    [self addSubview:_table];
    pinToEdges(_table, self, 12, 10);

    brimlet::mac::trackHover(self);
    self.accessibilityElement = YES;
    self.accessibilityRole = NSAccessibilityGroupRole;
    return self;
}

- (void)applyLook:(brimlet::FloatingLook)look expanded:(BOOL)expanded {
    const bool material = brimlet::FloatingMonitorStyle::usesMaterial(look);
    _glass.hidden = !material;
    _solid.hidden = material;
    _bar.hidden = expanded;
    _table.hidden = !expanded;
}

- (void)refresh {
    if (!_store) return;
    _screen = brimlet::MonitorScreens::floating(*_store);
    _chip.image = symbolImage(toNSString(_screen.memorySymbol), nil);
    _barGauge.hidden = !_screen.memoryGauge.has_value();
    if (_screen.memoryGauge) _barGauge.fraction = *_screen.memoryGauge;
    if (_screen.pressure) _barGauge.fillColor = brimlet::mac::pressureColor(*_screen.pressure);
    _barMemory.stringValue = toNSString(_screen.memoryPercent);
    _cpuSymbol.image = symbolImage(toNSString(_screen.cpuSymbol), nil);
    _barCPU.stringValue = toNSString(_screen.cpu);
    applyControl(_expand, _screen.expand);
    applyControl(_collapse, _screen.collapse);
    _title.stringValue = toNSString(_screen.title);
    while (_rows.count < _screen.readings.size()) {
        KBMetricRowView* row = [[KBMetricRowView alloc] initWithFrame:NSZeroRect];
        [_rows addObject:row];
        [_table addArrangedSubview:row];
        [row.widthAnchor constraintEqualToAnchor:_table.widthAnchor].active = YES;
    }
    for (NSUInteger i = 0; i < _rows.count; ++i) {
        _rows[i].hidden = i >= _screen.readings.size();
        if (!_rows[i].hidden) [_rows[i] showReading:_screen.readings[i]];
    }
    self.accessibilityLabel = toNSString(_screen.accessibilityLabel);
    self.accessibilityValue = toNSString(_screen.accessibilityValue);
}

- (void)expand:(id)sender {
    (void)sender;
    if (_store) _store->setFloatingExpanded(true);
}

- (void)collapse:(id)sender {
    (void)sender;
    if (_store) _store->setFloatingExpanded(false);
}

- (void)hideMonitor:(id)sender {
    (void)sender;
    if (_store) _store->setFloatingVisible(false);
}

- (void)mouseEntered:(NSEvent*)event {
    (void)event;
    if (_store) _store->setFloatingHovering(true);
}

- (void)mouseExited:(NSEvent*)event {
    (void)event;
    if (_store) _store->setFloatingHovering(false);
}

- (NSMenu*)menuForEvent:(NSEvent*)event {
    (void)event;
    if (!_store) return nil;
    NSMenu* menu = [[NSMenu alloc] init];
    for (const brimlet::MonitorControl& control : brimlet::MonitorScreens::floating(*_store).menu) {
        SEL action = nil;
        switch (control.action) {
        case brimlet::MonitorCommand::expandFloating:
            action = @selector(expand:);
            break;
        case brimlet::MonitorCommand::collapseFloating:
            action = @selector(collapse:);
            break;
        case brimlet::MonitorCommand::hideFloating:
            action = @selector(hideMonitor:);
            break;
        default:
            continue;
        }
        [menu addItemWithTitle:toNSString(control.title) action:action keyEquivalent:@""].target = self;
    }
    return menu;
}

- (BOOL)mouseDownCanMoveWindow {
    return YES;
}

- (void)detach {
    _store = nullptr;
}

@end

namespace brimlet::mac {
namespace {

std::unique_ptr<kestrow::UserDefaults> standardDefaults() {
    if (auto defaults = kestrow::UserDefaults::standard(SuiteLaunch::bundleIdentifier())) return defaults;
    return std::make_unique<kestrow::InMemoryUserDefaults>();
}

class PanelFloatingMonitor final : public FloatingMonitorController {
public:
    explicit PanelFloatingMonitor(MonitorStore& store)
        : store_(store), defaults_(standardDefaults()), place_(*defaults_, store.persistsSettings()) {
        view_ = [[KBFloatingMonitorView alloc] initWithStore:store_];
        panel_ = std::make_unique<kestrow::suite::mac::FloatingPanel>(
            view_, barSize, expandedSize, place_.topLeft(),
            [this](kestrow::suite::Point topLeft) { place_.moved(topLeft); },
            FloatingMonitorStyle::idleAlpha(store_.floatingLook()));
        // New figures redraw only what is on screen; the look and the size follow `sync`.
        observation_ = store_.observe([this] {
            if (panel_->isVisible()) [view_ refresh];
        });
    }

    ~PanelFloatingMonitor() override {
        observation_.cancel();
        [view_ detach];
        panel_->tearDown();
    }

    void sync() override {
        if (suppressed_ || !store_.floatingVisible()) {
            panel_->hide();
            // A hidden panel sends no mouseExited:, and a fading look must not stay lit next time.
            if (store_.floatingHovering()) store_.setFloatingHovering(false);
            return;
        }
        view_.appearance = appearanceFor(store_.floatingTheme());
        [view_ applyLook:store_.effectiveFloatingLook() expanded:store_.floatingExpanded()];
        [view_ refresh];
        panel_->setIdleAlpha(FloatingMonitorStyle::idleAlpha(store_.floatingLook()));
        panel_->setHovering(store_.floatingHovering());
        panel_->setExpanded(store_.floatingExpanded());
        panel_->show();
    }

    // The desktop controller syncs after a change of the suite; stepping aside happens at once.
    void setSuppressed(bool suppressed) override {
        suppressed_ = suppressed;
        if (suppressed_) panel_->hide();
    }

    bool isSuppressed() const override { return suppressed_; }

private:
    MonitorStore& store_;
    std::unique_ptr<kestrow::UserDefaults> defaults_;
    FloatingMonitorPlace place_;
    KBFloatingMonitorView* view_ = nil;
    std::unique_ptr<kestrow::suite::mac::FloatingPanel> panel_;
    kestrow::MainLoop::Token observation_;
    bool suppressed_ = false;
};

} // namespace

std::unique_ptr<FloatingMonitorController> makeFloatingMonitor(MonitorStore& store) {
    return std::make_unique<PanelFloatingMonitor>(store);
}

} // namespace brimlet::mac
