// The monitor's own floating monitor: a small bar (memory gauge and percentage, CPU) that expands
// into a table with the grades, in the shared floating panel. It shows while the user wants it and
// the suite is inactive (the suite's own floating bar takes its place otherwise), follows the chosen
// theme and look, tells the store when the pointer is over it, and keeps its corner under
// "floating.topLeft" in the standard user defaults.
#include "MacFrontEnd.hpp"

#include <optional>
#include <string>

#include "MonitorViews.hpp"
#include "app/FloatingMonitorStyle.hpp"
#include "app/MonitorReadout.hpp"
#include "app/SuiteLaunch.hpp"
#include "core/common/ByteFormat.hpp"
#include "suite/ui/darwin/FloatingPanel.hpp"

namespace {

namespace R = brimlet::MonitorReadout;
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
        case brimlet::FloatingTheme::system: return nil;  // follows the system
        case brimlet::FloatingTheme::light: return [NSAppearance appearanceNamed:NSAppearanceNameAqua];
        case brimlet::FloatingTheme::dark: return [NSAppearance appearanceNamed:NSAppearanceNameDarkAqua];
    }
    return nil;
}

NSButton* chevronButton(NSString* symbol, std::string_view label, id target, SEL action) {
    NSButton* button = [NSButton buttonWithImage:symbolImage(symbol, toNSString(label)) target:target action:action];
    button.bordered = NO;
    button.contentTintColor = NSColor.secondaryLabelColor;
    button.toolTip = toNSString(label);
    button.accessibilityLabel = toNSString(label);
    button.translatesAutoresizingMaskIntoConstraints = NO;
    return button;
}

void pinToEdges(NSView* view, NSView* container, CGFloat horizontal, CGFloat vertical) {
    view.translatesAutoresizingMaskIntoConstraints = NO;
    [NSLayoutConstraint activateConstraints:@[
        [view.leadingAnchor constraintEqualToAnchor:container.leadingAnchor constant:horizontal],
        [view.trailingAnchor constraintEqualToAnchor:container.trailingAnchor constant:-horizontal],
        [view.topAnchor constraintEqualToAnchor:container.topAnchor constant:vertical],
    ]];
}

}  // namespace

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
    NSTextField* _barMemory;
    NSTextField* _barCPU;
    KBMetricRowView* _memory;
    KBMetricRowView* _pressure;
    KBMetricRowView* _cpu;
    KBMetricRowView* _disk;
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
    NSImageView* chip = brimlet::mac::symbolView(@"memorychip");
    _barGauge = [[KBGaugeView alloc] initWithFrame:NSZeroRect];
    _barGauge.translatesAutoresizingMaskIntoConstraints = NO;
    [NSLayoutConstraint activateConstraints:@[
        [_barGauge.widthAnchor constraintEqualToConstant:56], [_barGauge.heightAnchor constraintEqualToConstant:6]
    ]];
    _barMemory = makeLabel(@"—", figureFont(12, NSFontWeightSemibold), NSColor.labelColor);
    NSImageView* cpu = brimlet::mac::symbolView(@"cpu");
    _barCPU = makeLabel(@"—", figureFont(12, NSFontWeightSemibold), NSColor.labelColor);
    NSButton* expand = chevronButton(@"chevron.down", R::expandFloatingLabel, self, @selector(expand:));
    _bar = [NSStackView stackViewWithViews:@[ chip, _barGauge, _barMemory, cpu, _barCPU ]];
    _bar.spacing = 6;
    [_bar addView:expand inGravity:NSStackViewGravityTrailing];
    [self addSubview:_bar];
    pinToEdges(_bar, self, 10, 7);

    // The table: the figures with their grades.
    NSTextField* title = makeLabel(toNSString(R::productName), brimlet::mac::systemFont(11, NSFontWeightSemibold),
                                   NSColor.secondaryLabelColor);
    NSButton* collapse = chevronButton(@"chevron.up", R::collapseFloatingLabel, self, @selector(collapse:));
    NSStackView* header = [NSStackView stackViewWithViews:@[ title ]];
    [header addView:collapse inGravity:NSStackViewGravityTrailing];
    _memory = [[KBMetricRowView alloc] initWithSymbol:@"memorychip" title:toNSString(R::memoryTitle)];
    _pressure = [[KBMetricRowView alloc] initWithSymbol:@"gauge" title:toNSString(R::pressureTitle)];
    _cpu = [[KBMetricRowView alloc] initWithSymbol:@"cpu" title:toNSString(R::cpuTitle)];
    _disk = [[KBMetricRowView alloc] initWithSymbol:@"internaldrive" title:toNSString(R::freeDiskTitle)];
    _table = [NSStackView stackViewWithViews:@[ header, _memory, _pressure, _cpu, _disk ]];
    _table.orientation = NSUserInterfaceLayoutOrientationVertical;
    _table.spacing = 8;
    _table.hidden = YES;
    for (NSView* row in _table.arrangedSubviews) [row.widthAnchor constraintEqualToAnchor:_table.widthAnchor].active = YES;
    [self addSubview:_table];
    pinToEdges(_table, self, 12, 10);

    brimlet::mac::trackHover(self);
    self.accessibilityElement = YES;
    self.accessibilityRole = NSAccessibilityGroupRole;
    self.accessibilityLabel = toNSString(R::productName);
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
    const std::optional<brimlet::SystemGlance>& glance = _store->glance();
    if (glance) {
        _barGauge.fraction = glance->memoryFraction();
        _barGauge.fillColour = brimlet::mac::pressureColour(glance->pressure);
        _barMemory.stringValue = toNSString(std::to_string(R::memoryPercent(*glance)) + "%");
        _barCPU.stringValue = toNSString(R::percent(glance->cpuLoad));
        [_memory setFigure:toNSString(R::memoryUsage(glance->memoryUsed, glance->memoryTotal)) caption:nil];
        [_memory setGaugeFraction:glance->memoryFraction() colour:brimlet::mac::pressureColour(glance->pressure)];
        [_pressure setFigure:toNSString(R::pressureWord(glance->pressure)) caption:nil];
        [_cpu setFigure:toNSString(R::percent(glance->cpuLoad)) caption:nil];
        [_disk setFigure:toNSString(brimlet::ByteFormat::string(glance->diskFree)) caption:nil];
    }
    // The grades need the full sample (swap counts for memory); until one exists they stay empty.
    if (const std::optional<brimlet::MonitorSnapshot>& snapshot = _store->snapshot()) {
        const brimlet::HealthRating health(snapshot->system);
        [_memory setGrade:health.memory];
        [_cpu setGrade:health.cpu];
        [_disk setGrade:health.disk];
    }
    self.accessibilityValue = toNSString(R::menuBarAccessibilityLabel(glance));
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
    NSMenu* menu = [[NSMenu alloc] init];
    NSString* expandTitle = toNSString(_store && _store->floatingExpanded() ? R::collapseFloatingLabel : R::expandFloatingLabel);
    [menu addItemWithTitle:expandTitle
                    action:_store && _store->floatingExpanded() ? @selector(collapse:) : @selector(expand:)
             keyEquivalent:@""]
        .target = self;
    [menu addItemWithTitle:toNSString(R::hideFloatingTitle) action:@selector(hideMonitor:) keyEquivalent:@""].target = self;
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
            view_, barSize, expandedSize, place_.topLeft(), [this](kestrow::suite::Point topLeft) { place_.moved(topLeft); },
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

}  // namespace

std::unique_ptr<FloatingMonitorController> makeFloatingMonitor(MonitorStore& store) {
    return std::make_unique<PanelFloatingMonitor>(store);
}

}  // namespace brimlet::mac
