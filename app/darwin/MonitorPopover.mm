#include "base/darwin/ViewLayout.hpp"
#include "MonitorPopover.hpp"

#include <unistd.h>

#include <string>
#include <vector>

#include "MonitorViews.hpp"
#include "app/AppQuitter.hpp"
#include "app/BrimletWindows.hpp"
#include "app/MonitorReadout.hpp"
#include "core/common/ByteFormat.hpp"

namespace {

namespace R = brimlet::MonitorReadout;
using brimlet::mac::figureFont;
using brimlet::mac::makeLabel;
using brimlet::mac::symbolImage;
using brimlet::mac::toNSString;

constexpr CGFloat popoverWidth = 340;
constexpr CGFloat inset = 14;
constexpr std::size_t listedApps = 5;

NSView* separator() {
    NSBox* line = [[NSBox alloc] initWithFrame:NSZeroRect];
    line.boxType = NSBoxSeparator;
    line.translatesAutoresizingMaskIntoConstraints = NO;
    return line;
}

// The running applications as AppQuitter reads them, in the system's order.
std::vector<brimlet::RunningApplication> runningApplications() {
    std::vector<brimlet::RunningApplication> running;
    for (NSRunningApplication* application in NSWorkspace.sharedWorkspace.runningApplications) {
        brimlet::RunningApplication entry;
        entry.processIdentifier = application.processIdentifier;
        NSString* path = application.bundleURL.path;
        if (path != nil && path.UTF8String != nullptr) entry.bundlePath = std::string(path.UTF8String);
        running.push_back(std::move(entry));
    }
    return running;
}

}  // namespace

// One application of the list: its icon, name and figures, and a quit control that shows under the
// pointer ("Hover an app to quit it"); VoiceOver and the keyboard reach the control at all times.
@interface KBAppRowView : NSView
@property(nonatomic, copy) void (^onQuit)(void);
- (void)showGroup:(const brimlet::AppGroup&)group icon:(NSImage*)icon;
@end

@implementation KBAppRowView {
    NSImageView* _icon;
    NSTextField* _name;
    NSTextField* _memory;
    NSTextField* _cpu;
    NSButton* _quit;
    BOOL _hovering;
}

- (instancetype)initWithFrame:(NSRect)frame {
    if (!(self = [super initWithFrame:frame])) return nil;
    self.translatesAutoresizingMaskIntoConstraints = NO;
    _icon = [[NSImageView alloc] initWithFrame:NSZeroRect];
    _icon.translatesAutoresizingMaskIntoConstraints = NO;
    _icon.imageScaling = NSImageScaleProportionallyUpOrDown;
    _name = makeLabel(@"", brimlet::mac::systemFont(13, NSFontWeightRegular), NSColor.labelColor);
    [_name setContentHuggingPriority:NSLayoutPriorityDefaultLow forOrientation:NSLayoutConstraintOrientationHorizontal];
    [_name setContentCompressionResistancePriority:NSLayoutPriorityDefaultLow
                                    forOrientation:NSLayoutConstraintOrientationHorizontal];
    _memory = makeLabel(@"", figureFont(12, NSFontWeightRegular), NSColor.labelColor);
    _memory.alignment = NSTextAlignmentRight;
    _cpu = makeLabel(@"", figureFont(11, NSFontWeightRegular), NSColor.secondaryLabelColor);
    _cpu.alignment = NSTextAlignmentRight;
    _quit = [NSButton buttonWithImage:symbolImage(@"xmark.circle.fill", nil) target:self action:@selector(quitPressed:)];
    _quit.bordered = NO;
    _quit.contentTintColor = NSColor.secondaryLabelColor;
    _quit.translatesAutoresizingMaskIntoConstraints = NO;
    _quit.alphaValue = 0;

    for (NSView* view in @[ _icon, _name, _memory, _cpu, _quit ]) [self addSubview:view];
    [NSLayoutConstraint activateConstraints:@[
        [self.heightAnchor constraintEqualToConstant:24],
        [_icon.leadingAnchor constraintEqualToAnchor:self.leadingAnchor],
        [_icon.centerYAnchor constraintEqualToAnchor:self.centerYAnchor],
        [_icon.widthAnchor constraintEqualToConstant:18],
        [_icon.heightAnchor constraintEqualToConstant:18],
        [_name.leadingAnchor constraintEqualToAnchor:_icon.trailingAnchor constant:8],
        [_name.centerYAnchor constraintEqualToAnchor:self.centerYAnchor],
        [_memory.leadingAnchor constraintGreaterThanOrEqualToAnchor:_name.trailingAnchor constant:8],
        [_memory.widthAnchor constraintEqualToConstant:70],
        [_memory.centerYAnchor constraintEqualToAnchor:self.centerYAnchor],
        [_cpu.leadingAnchor constraintEqualToAnchor:_memory.trailingAnchor constant:6],
        [_cpu.widthAnchor constraintEqualToConstant:44],
        [_cpu.centerYAnchor constraintEqualToAnchor:self.centerYAnchor],
        [_quit.leadingAnchor constraintEqualToAnchor:_cpu.trailingAnchor constant:6],
        [_quit.trailingAnchor constraintEqualToAnchor:self.trailingAnchor],
        [_quit.centerYAnchor constraintEqualToAnchor:self.centerYAnchor],
        [_quit.widthAnchor constraintEqualToConstant:18],
    ]];
    brimlet::mac::trackHover(self);
    return self;
}

- (void)showGroup:(const brimlet::AppGroup&)group icon:(NSImage*)icon {
    _icon.image = icon;
    _name.stringValue = toNSString(group.name);
    _memory.stringValue = toNSString(brimlet::ByteFormat::memory(group.footprint));
    _cpu.stringValue = toNSString(R::processPercent(group.cpuPercent));
    const bool canQuit = brimlet::AppQuitter::canQuit(group);
    _quit.enabled = canQuit;
    _quit.toolTip = canQuit ? toNSString(R::quitControlLabel(group.name)) : toNSString(brimlet::AppQuitter::unavailableHelp);
    _quit.accessibilityLabel = toNSString(R::quitControlLabel(group.name));
    _quit.accessibilityHelp = canQuit ? nil : toNSString(brimlet::AppQuitter::unavailableHelp);
    self.accessibilityLabel = toNSString(R::appRowLabel(group));
    [self updateQuitVisibility];
}

- (void)mouseEntered:(NSEvent*)event {
    (void)event;
    _hovering = YES;
    [self updateQuitVisibility];
}

- (void)mouseExited:(NSEvent*)event {
    (void)event;
    _hovering = NO;
    [self updateQuitVisibility];
}

- (void)updateQuitVisibility {
    // A disabled control still shows under the pointer, so its help text can be read.
    _quit.animator.alphaValue = _hovering ? 1 : 0;
}

- (void)quitPressed:(id)sender {
    (void)sender;
    if (_onQuit) _onQuit();
}

@end

@implementation KBMonitorPopoverController {
    brimlet::MonitorStore* _store;
    brimlet::mac::WindowPresenter* _windows;
    NSStackView* _stack;
    NSView* _note;
    NSTextField* _waiting;
    NSStackView* _metrics;
    KBMetricRowView* _memory;
    KBMetricRowView* _pressure;
    KBMetricRowView* _swap;
    KBMetricRowView* _cpu;
    KBMetricRowView* _gpu;
    KBMetricRowView* _disk;
    KBMetricRowView* _thermal;
    NSStackView* _apps;
    NSMutableArray<KBAppRowView*>* _appRows;
    std::vector<brimlet::AppGroup> _shownApps;
    NSCache<NSString*, NSImage*>* _icons;
    BOOL _noteSeen;
    BOOL _shown;
}

- (instancetype)initWithStore:(brimlet::MonitorStore&)store windows:(brimlet::mac::WindowPresenter&)windows {
    if ((self = [super initWithNibName:nil bundle:nil])) {
        _store = &store;
        _windows = &windows;
        _appRows = [NSMutableArray array];
        _icons = [[NSCache alloc] init];
    }
    return self;
}

- (void)loadView {
    NSView* root = [[NSView alloc] initWithFrame:NSMakeRect(0, 0, popoverWidth, 480)];

    NSTextField* title = makeLabel(toNSString(R::productName), brimlet::mac::systemFont(13, NSFontWeightBold),
                                   NSColor.labelColor);
    title.accessibilityRole = NSAccessibilityStaticTextRole;

    NSImageView* noteIcon = [NSImageView imageViewWithImage:symbolImage(@"exclamationmark.bubble", nil)];
    noteIcon.contentTintColor = NSColor.systemOrangeColor;
    NSTextField* noteText = [NSTextField wrappingLabelWithString:toNSString(R::undeliveredAlertNote)];
    noteText.font = brimlet::mac::systemFont(11, NSFontWeightRegular);
    noteText.preferredMaxLayoutWidth = popoverWidth - 2 * inset - 26;
    NSStackView* note = [NSStackView stackViewWithViews:@[ noteIcon, noteText ]];
    note.alignment = NSLayoutAttributeTop;
    note.hidden = YES;
    _note = note;

    _waiting = makeLabel(toNSString(R::waitingForFirstSample), brimlet::mac::systemFont(12, NSFontWeightRegular), NSColor.secondaryLabelColor);

    _memory = [[KBMetricRowView alloc] initWithSymbol:@"memorychip" title:toNSString(R::memoryTitle)];
    _pressure = [[KBMetricRowView alloc] initWithSymbol:@"gauge" title:toNSString(R::pressureTitle)];
    _swap = [[KBMetricRowView alloc] initWithSymbol:@"arrow.down.doc" title:toNSString(R::swapTitle)];
    _cpu = [[KBMetricRowView alloc] initWithSymbol:@"cpu" title:toNSString(R::cpuTitle)];
    _gpu = [[KBMetricRowView alloc] initWithSymbol:@"cube.transparent" title:toNSString(R::gpuTitle)];
    _disk = [[KBMetricRowView alloc] initWithSymbol:@"internaldrive" title:toNSString(R::diskTitle)];
    _thermal = [[KBMetricRowView alloc] initWithSymbol:@"thermometer" title:toNSString(R::thermalTitle)];
    _metrics = [NSStackView stackViewWithViews:@[ _memory, _pressure, _swap, _cpu, _gpu, _disk, _thermal ]];
    _metrics.orientation = NSUserInterfaceLayoutOrientationVertical;
    _metrics.spacing = 9;
    for (NSView* row in _metrics.arrangedSubviews)
        [row.widthAnchor constraintEqualToAnchor:_metrics.widthAnchor].active = YES;

    NSTextField* appsTitle = makeLabel(toNSString(R::topAppsTitle), brimlet::mac::systemFont(11, NSFontWeightSemibold),
                                       NSColor.secondaryLabelColor);
    NSTextField* hint = makeLabel(toNSString(R::quitHint), brimlet::mac::systemFont(11, NSFontWeightRegular), NSColor.tertiaryLabelColor);
    hint.alignment = NSTextAlignmentRight;
    NSStackView* appsHeader = [NSStackView stackViewWithViews:@[ appsTitle, hint ]];
    appsHeader.distribution = NSStackViewDistributionEqualSpacing;
    _apps = [NSStackView stackViewWithViews:@[]];
    _apps.orientation = NSUserInterfaceLayoutOrientationVertical;
    _apps.spacing = 2;

    NSButton* dashboard = [self footerButton:R::dashboardTitle symbol:@"gauge.medium" action:@selector(openDashboard:)];
    NSButton* cleanup = [self footerButton:R::cleanupTitle symbol:@"sparkles" action:@selector(openCleanup:)];
    NSButton* settings = [self footerButton:R::settingsTitle symbol:@"gearshape" action:@selector(openSettings:)];
    NSButton* quit = [self footerButton:R::quitProductTitle symbol:@"power" action:@selector(quitProduct:)];
    quit.imagePosition = NSImageOnly;
    quit.toolTip = toNSString(R::quitProductTitle);
    quit.keyEquivalent = @"q";
    quit.keyEquivalentModifierMask = NSEventModifierFlagCommand;
    NSStackView* footer = [NSStackView stackViewWithViews:@[ dashboard, cleanup, settings ]];
    footer.spacing = 6;
    [footer addView:quit inGravity:NSStackViewGravityTrailing];

    _stack = [NSStackView stackViewWithViews:@[
        title, note, _waiting, _metrics, separator(), appsHeader, _apps, separator(), footer
    ]];
    _stack.orientation = NSUserInterfaceLayoutOrientationVertical;
    _stack.alignment = NSLayoutAttributeLeading;
    _stack.spacing = 10;
    _stack.edgeInsets = NSEdgeInsetsMake(inset, inset, inset, inset);
    [root addSubview:_stack];
    kestrow::mac::pinEdges(_stack, root);
    NSMutableArray<NSLayoutConstraint*>* constraints =
        [NSMutableArray arrayWithArray:@[ [root.widthAnchor constraintEqualToConstant:popoverWidth] ]];
    for (NSView* view in @[ note, _metrics, appsHeader, _apps, footer ])
        [constraints addObject:[view.widthAnchor constraintEqualToAnchor:_stack.widthAnchor constant:-2 * inset]];
    for (NSView* view in _stack.arrangedSubviews)
        if ([view isKindOfClass:NSBox.class])
            [constraints addObject:[view.widthAnchor constraintEqualToAnchor:_stack.widthAnchor constant:-2 * inset]];
    [NSLayoutConstraint activateConstraints:constraints];
    self.view = root;
    [self refresh];
}

- (NSButton*)footerButton:(std::string_view)title symbol:(NSString*)symbol action:(SEL)action {
    NSButton* button = [NSButton buttonWithTitle:toNSString(title) image:symbolImage(symbol, nil) target:self action:action];
    button.controlSize = NSControlSizeSmall;
    button.font = brimlet::mac::systemFont(11, NSFontWeightRegular);
    button.imagePosition = NSImageLeading;
    button.accessibilityLabel = toNSString(title);
    return button;
}

- (void)refresh {
    if (!_store || !self.isViewLoaded) return;
    const bool undelivered = _store->hasUndeliveredAlert();
    _note.hidden = !undelivered;
    if (undelivered && _shown) _noteSeen = YES;

    const std::optional<brimlet::MonitorSnapshot>& snapshot = _store->snapshot();
    _waiting.hidden = snapshot.has_value();
    _metrics.hidden = !snapshot.has_value();
    if (!snapshot) {
        [self showApps:{}];
        return;
    }
    const brimlet::SystemStats& stats = snapshot->system;
    const brimlet::HealthRating health(stats);
    const brimlet::SystemGlance glance = snapshot->glance();

    [_memory setFigure:toNSString(R::memoryUsage(stats.memoryUsed, stats.memoryTotal)) caption:nil];
    [_memory setGrade:health.memory];
    [_memory setGaugeFraction:glance.memoryFraction() colour:brimlet::mac::pressureColour(stats.pressure)];
    [_pressure setFigure:toNSString(R::pressureWord(stats.pressure)) caption:nil];
    [_swap setFigure:toNSString(brimlet::ByteFormat::memory(stats.swapUsed)) caption:toNSString(R::swapCaption)];
    [_cpu setFigure:toNSString(R::percent(stats.cpuLoad)) caption:nil];
    [_cpu setGrade:health.cpu];
    std::optional<double> cpuFraction;
    if (stats.cpuLoad) cpuFraction = *stats.cpuLoad / 100;
    [_cpu setGaugeFraction:cpuFraction colour:health.cpu ? brimlet::mac::gradeColour(*health.cpu) : nil];
    [_gpu setFigure:toNSString(R::percent(stats.gpuUtilization)) caption:nil];
    [_disk setFigure:toNSString(R::diskSpace(stats.diskFree, stats.diskTotal))
             caption:toNSString(R::diskRates(stats.diskReadPerSecond, stats.diskWritePerSecond))];
    [_disk setGrade:health.disk];
    [_thermal setFigure:toNSString(R::thermalWord(stats.thermal)) caption:toNSString(R::throttlingLine(stats.thermal))];
    [_thermal setGrade:health.thermal];

    [self showApps:snapshot->topApps(brimlet::AppMetric::memory, listedApps)];
}

- (void)showApps:(std::vector<brimlet::AppGroup>)groups {
    _shownApps = std::move(groups);
    while (_appRows.count < _shownApps.size()) {
        KBAppRowView* row = [[KBAppRowView alloc] initWithFrame:NSZeroRect];
        const NSUInteger index = _appRows.count;
        __weak KBMonitorPopoverController* weakSelf = self;
        row.onQuit = ^{
            [weakSelf askToQuitAppAtIndex:index];
        };
        [_appRows addObject:row];
        [_apps addArrangedSubview:row];
        [row.widthAnchor constraintEqualToAnchor:_apps.widthAnchor].active = YES;
    }
    for (NSUInteger i = 0; i < _appRows.count; ++i) {
        KBAppRowView* row = _appRows[i];
        row.hidden = i >= _shownApps.size();
        if (!row.hidden) [row showGroup:_shownApps[i] icon:[self iconFor:_shownApps[i]]];
    }
}

- (NSImage*)iconFor:(const brimlet::AppGroup&)group {
    if (!group.bundlePath) return symbolImage(@"terminal", nil);
    NSString* path = toNSString(*group.bundlePath);
    NSImage* icon = [_icons objectForKey:path];
    if (!icon) {
        icon = [NSWorkspace.sharedWorkspace iconForFile:path];
        [_icons setObject:icon forKey:path];
    }
    return icon;
}

// The confirmation first, then AppQuitter picks whom to ask (never this process) from the list of
// running applications as it is after the user answered.
- (void)askToQuitAppAtIndex:(NSUInteger)index {
    if (index >= _shownApps.size()) return;
    const brimlet::AppGroup group = _shownApps[index];
    if (!brimlet::AppQuitter::canQuit(group)) return;
    NSAlert* alert = [[NSAlert alloc] init];
    alert.messageText = toNSString(R::quitTitle(group.name));
    alert.informativeText = toNSString(brimlet::AppQuitter::confirmation(group));
    alert.icon = [self iconFor:group];
    [alert addButtonWithTitle:toNSString(R::quitButton)];
    [alert addButtonWithTitle:toNSString(R::cancelButton)];
    [NSApp activateIgnoringOtherApps:YES];
    if ([alert runModal] != NSAlertFirstButtonReturn) return;
    brimlet::AppQuitter::quit(group, runningApplications(), getpid(), [](const brimlet::RunningApplication& target) {
        [[NSRunningApplication runningApplicationWithProcessIdentifier:target.processIdentifier] terminate];
    });
}

- (void)openWindow:(std::string_view)identifier {
    [self.popover performClose:nil];
    if (_windows) _windows->open(identifier);
}

- (void)openDashboard:(id)sender {
    (void)sender;
    [self openWindow:brimlet::BrimletWindows::dashboard];
}

- (void)openCleanup:(id)sender {
    (void)sender;
    [self openWindow:brimlet::BrimletWindows::cleanup];
}

- (void)openSettings:(id)sender {
    (void)sender;
    [self openWindow:brimlet::BrimletWindows::settings];
}

- (void)quitProduct:(id)sender {
    [NSApp terminate:sender];
}

- (void)popoverDidShow {
    _shown = YES;
    [self refresh];
}

- (void)popoverDidClose {
    _shown = NO;
    if (_noteSeen && _store) _store->setHasUndeliveredAlert(false);
    _noteSeen = NO;
}

- (void)detach {
    _store = nullptr;
    _windows = nullptr;
}

@end
