// The settings window: alerts, the menu bar display, the floating monitor, Dock badges, launch at
// login and the suite's own-icon choice. Each control writes through the store's setter (which
// stores the value and lets the desktop follow) and is set back from the store whenever the
// settings change elsewhere, for example the floating monitor toggled with its shortcut.
#include <functional>
#include <string>
#include <vector>

#include "base/darwin/ViewLayout.hpp"
#include "LoginItem.hpp"
#include "WindowContent.hpp"
#include "WindowKit.hpp"
#include "app/SettingsChoices.hpp"
#include "base/Log.hpp"

using brimlet::mac::ns;
namespace Choices = brimlet::SettingsChoices;

namespace {

constexpr CGFloat noteWidth = 420;

template <typename E>
NSArray<NSString*>* enumTitles() {
    NSMutableArray<NSString*>* titles = [NSMutableArray array];
    for (const E& value : E::allCases()) [titles addObject:ns(Choices::title(value))];
    return titles;
}

// A pop-up over every case of the enumeration, in case order, calling `set` with the one chosen.
template <typename E>
NSPopUpButton* enumPopUp(NSString* accessibilityLabel, std::function<void(E)> set) {
    return brimlet::mac::makePopUp(enumTitles<E>(), -1, accessibilityLabel, ^(NSInteger index) {
        const auto& cases = E::allCases();
        if (index >= 0 && static_cast<std::size_t>(index) < cases.size()) set(cases[static_cast<std::size_t>(index)]);
    });
}

template <typename T>
void fillThresholds(NSPopUpButton* popUp, const std::vector<brimlet::SettingChoice<T>>& choices, T current) {
    [popUp removeAllItems];
    for (const auto& choice : choices) [popUp addItemWithTitle:ns(choice.title)];
    for (std::size_t i = 0; i < choices.size(); ++i)
        if (choices[i].value == current) [popUp selectItemAtIndex:static_cast<NSInteger>(i)];
}

// What the controls show, so they are set again only when one of these changed, never under the
// user's pointer on every sample.
struct Shown {
    brimlet::AlertSettings alerts;
    brimlet::MenuBarDisplay menuBar;
    bool floatingVisible = false;
    brimlet::FloatingTheme theme;
    brimlet::FloatingLook look;
    brimlet::DockBadgeMode dock;
    brimlet::DockBadgeSettings badges;
    bool operator==(const Shown&) const = default;
};

}  // namespace

@interface KBSettingsViewController : NSViewController
- (instancetype)initWithApplication:(brimlet::BrimletApplication&)application;
@end

@implementation KBSettingsViewController {
    brimlet::BrimletApplication* _application;
    kestrow::MainLoop::Token _observation;
    std::optional<Shown> _shown;
    std::vector<brimlet::SettingChoice<std::uint64_t>> _lowDiskChoices;
    std::vector<brimlet::SettingChoice<std::uint64_t>> _heavyAppChoices;
    std::vector<brimlet::SettingChoice<std::uint64_t>> _dockMemoryChoices;
    std::vector<brimlet::SettingChoice<double>> _dockCpuChoices;
    NSButton* _pressureAlert;
    NSButton* _lowDiskAlert;
    NSPopUpButton* _lowDiskThreshold;
    NSButton* _heavyAppAlert;
    NSPopUpButton* _heavyAppThreshold;
    NSPopUpButton* _menuBarDisplay;
    NSButton* _ownIcon;
    NSButton* _floatingVisible;
    NSPopUpButton* _floatingTheme;
    NSPopUpButton* _floatingLook;
    NSPopUpButton* _dockMode;
    NSPopUpButton* _dockMemory;
    NSPopUpButton* _dockCpu;
    NSButton* _launchAtLogin;
    NSTextField* _loginProblem;
    NSGridRow* _loginProblemRow;
}

- (instancetype)initWithApplication:(brimlet::BrimletApplication&)application {
    if ((self = [super initWithNibName:nil bundle:nil])) _application = &application;
    return self;
}

- (brimlet::MonitorStore&)store {
    return _application->monitor();
}

- (void)changeAlerts:(void (^)(brimlet::AlertSettings& settings))change {
    brimlet::AlertSettings settings = [self store].alertSettings();
    change(settings);
    [self store].setAlertSettings(settings);
}

// ---- Layout

- (void)loadView {
    __weak KBSettingsViewController* weakSelf = self;
    brimlet::BrimletApplication* application = _application;
    brimlet::MonitorStore* store = &application->monitor();

    // Alerts.
    _pressureAlert = brimlet::mac::makeCheckbox(@"Memory pressure stays critical", true, ^(bool on) {
        [weakSelf changeAlerts:^(brimlet::AlertSettings& s) { s.memoryPressureEnabled = on; }];
    });
    _lowDiskAlert = brimlet::mac::makeCheckbox(@"Disk space is low", true, ^(bool on) {
        [weakSelf changeAlerts:^(brimlet::AlertSettings& s) { s.lowDiskEnabled = on; }];
    });
    _lowDiskThreshold = brimlet::mac::makePopUp(@[], -1, @"Low disk alert threshold", ^(NSInteger index) {
        [weakSelf pickedLowDisk:index];
    });
    _heavyAppAlert = brimlet::mac::makeCheckbox(@"An app uses a lot of memory", true, ^(bool on) {
        [weakSelf changeAlerts:^(brimlet::AlertSettings& s) { s.heavyAppEnabled = on; }];
    });
    _heavyAppThreshold = brimlet::mac::makePopUp(@[], -1, @"Heavy app alert threshold", ^(NSInteger index) {
        [weakSelf pickedHeavyApp:index];
    });

    // Menu bar.
    _menuBarDisplay = enumPopUp<brimlet::MenuBarDisplay>(
        @"Menu bar shows", [store](brimlet::MenuBarDisplay value) { store->setMenuBarDisplay(value); });
    kestrow::suite::SuiteParticipant* participant = &application->participant();
    _ownIcon = brimlet::mac::makeCheckbox(ns(Choices::ownIconTitle), participant->ownIconWanted(), ^(bool on) {
        const kestrow::Status status = participant->setOwnIconWanted(on);
        if (status.failed()) kestrow::log::error("settings", "own icon setting not saved: " + status.message());
    });

    // Floating monitor.
    _floatingVisible = brimlet::mac::makeCheckbox(@"Show the floating monitor", false, ^(bool on) {
        store->setFloatingVisible(on);
    });
    _floatingTheme = enumPopUp<brimlet::FloatingTheme>(
        @"Floating monitor theme", [store](brimlet::FloatingTheme value) { store->setFloatingTheme(value); });
    _floatingLook = enumPopUp<brimlet::FloatingLook>(
        @"Floating monitor look", [store](brimlet::FloatingLook value) { store->setFloatingLook(value); });

    // Dock badges.
    _dockMode = enumPopUp<brimlet::DockBadgeMode>(
        ns(Choices::dockBadgesTitle), [store](brimlet::DockBadgeMode value) { store->setDockBadges(value); });
    _dockMemory = brimlet::mac::makePopUp(@[], -1, @"Memory badge threshold", ^(NSInteger index) {
        [weakSelf pickedDockMemory:index];
    });
    _dockCpu = brimlet::mac::makePopUp(@[], -1, @"CPU badge threshold", ^(NSInteger index) {
        [weakSelf pickedDockCpu:index];
    });

    // Launch at login.
    _launchAtLogin = brimlet::mac::makeCheckbox(ns(Choices::launchAtLoginTitle), false, ^(bool on) {
        [weakSelf changeLoginItem:on];
    });
    _loginProblem = brimlet::mac::makeNote(@"", noteWidth);
    _loginProblem.textColor = NSColor.systemRedColor;

    NSGridView* grid = [NSGridView gridViewWithNumberOfColumns:2 rows:0];
    grid.rowSpacing = 8;
    grid.columnSpacing = 12;
    [grid columnAtIndex:0].xPlacement = NSGridCellPlacementTrailing;
    auto row = [grid](NSString* label, NSView* control) {
        NSTextField* title = label ? [NSTextField labelWithString:label] : nil;
        NSGridRow* added = [grid addRowWithViews:@[ title ? title : [NSGridCell emptyContentView], control ]];
        added.rowAlignment = NSGridRowAlignmentFirstBaseline;
        return added;
    };
    auto section = [grid](NSString* heading, bool first) {
        NSView* empty = [NSGridCell emptyContentView];
        NSGridRow* added = [grid addRowWithViews:@[ brimlet::mac::makeHeading(heading), empty ]];
        [added mergeCellsInRange:NSMakeRange(0, 2)];
        [added cellAtIndex:0].xPlacement = NSGridCellPlacementLeading;
        added.topPadding = first ? 0 : 14;
    };
    auto note = [&row](NSString* text) {
        NSGridRow* added = row(nil, brimlet::mac::makeNote(text, noteWidth));
        added.topPadding = -2;
    };

    section(@"Alerts", true);
    row(@"Notify me when:", _pressureAlert);
    row(nil, _lowDiskAlert);
    row(nil, _lowDiskThreshold);
    row(nil, _heavyAppAlert);
    row(nil, _heavyAppThreshold);
    note(ns(Choices::alertsNote));

    section(@"Menu Bar", false);
    row(@"Menu bar shows:", _menuBarDisplay);
    row(nil, _ownIcon);
    note(ns(Choices::ownIconExplanation));

    section(@"Floating Monitor", false);
    row(@"Floating monitor:", _floatingVisible);
    note(ns(Choices::floatingShortcutNote));
    row(@"Theme:", _floatingTheme);
    row(@"Look:", _floatingLook);

    section(@"Dock", false);
    row([ns(Choices::dockBadgesTitle) stringByAppendingString:@":"], _dockMode);
    row(@"Memory badge from:", _dockMemory);
    row(@"CPU badge from:", _dockCpu);
    note(ns(Choices::dockAccessibilityNote));

    section(@"Startup", false);
    row(@"Login:", _launchAtLogin);
    _loginProblemRow = row(nil, _loginProblem);
    _loginProblemRow.hidden = YES;

    NSView* root = [[NSView alloc] init];
    [root addSubview:grid];
    kestrow::mac::pinEdges(grid, root, NSEdgeInsetsMake(20, 24, 20, 24));
    self.view = root;
    [self syncFromStore];
    [self syncLoginItem];
}

// ---- Appearing and following the store

- (void)viewWillAppear {
    [super viewWillAppear];
    __weak KBSettingsViewController* weakSelf = self;
    _observation = [self store].observe([weakSelf] { [weakSelf syncFromStore]; });
    [self syncFromStore];
    [self syncLoginItem];  // the user may have changed it in System Settings meanwhile
    [self fitWindow];
    _ownIcon.state = _application->participant().ownIconWanted() ? NSControlStateValueOn : NSControlStateValueOff;
}

- (void)viewDidDisappear {
    [super viewDidDisappear];
    _observation.cancel();
}

- (void)syncFromStore {
    brimlet::MonitorStore& store = [self store];
    const Shown now{store.alertSettings(),   store.menuBarDisplay(), store.floatingVisible(), store.floatingTheme(),
                    store.floatingLook(),    store.dockBadges(),     store.dockBadgeSettings()};
    if (_shown && *_shown == now) return;
    _shown = now;

    const auto on = [](bool value) { return value ? NSControlStateValueOn : NSControlStateValueOff; };
    _pressureAlert.state = on(now.alerts.memoryPressureEnabled);
    _lowDiskAlert.state = on(now.alerts.lowDiskEnabled);
    _heavyAppAlert.state = on(now.alerts.heavyAppEnabled);
    _lowDiskChoices = Choices::lowDiskThresholds(now.alerts.lowDiskThreshold);
    fillThresholds(_lowDiskThreshold, _lowDiskChoices, now.alerts.lowDiskThreshold);
    _lowDiskThreshold.enabled = now.alerts.lowDiskEnabled;
    _heavyAppChoices = Choices::heavyAppThresholds(now.alerts.heavyAppThreshold);
    fillThresholds(_heavyAppThreshold, _heavyAppChoices, now.alerts.heavyAppThreshold);
    _heavyAppThreshold.enabled = now.alerts.heavyAppEnabled;

    [_menuBarDisplay selectItemAtIndex:static_cast<NSInteger>(now.menuBar.value)];
    _floatingVisible.state = on(now.floatingVisible);
    [_floatingTheme selectItemAtIndex:static_cast<NSInteger>(now.theme.value)];
    [_floatingLook selectItemAtIndex:static_cast<NSInteger>(now.look.value)];

    [_dockMode selectItemAtIndex:static_cast<NSInteger>(now.dock.value)];
    _dockMemoryChoices = Choices::dockMemoryThresholds(now.badges.memoryThreshold);
    fillThresholds(_dockMemory, _dockMemoryChoices, now.badges.memoryThreshold);
    _dockMemory.enabled = now.dock == brimlet::DockBadgeMode::memory;
    _dockCpuChoices = Choices::dockCpuThresholds(now.badges.cpuThreshold);
    fillThresholds(_dockCpu, _dockCpuChoices, now.badges.cpuThreshold);
    _dockCpu.enabled = now.dock == brimlet::DockBadgeMode::cpu;
}

// ---- Thresholds

- (void)pickedLowDisk:(NSInteger)index {
    if (index < 0 || static_cast<std::size_t>(index) >= _lowDiskChoices.size()) return;
    const std::uint64_t value = _lowDiskChoices[static_cast<std::size_t>(index)].value;
    [self changeAlerts:^(brimlet::AlertSettings& s) { s.lowDiskThreshold = value; }];
}

- (void)pickedHeavyApp:(NSInteger)index {
    if (index < 0 || static_cast<std::size_t>(index) >= _heavyAppChoices.size()) return;
    const std::uint64_t value = _heavyAppChoices[static_cast<std::size_t>(index)].value;
    [self changeAlerts:^(brimlet::AlertSettings& s) { s.heavyAppThreshold = value; }];
}

- (void)pickedDockMemory:(NSInteger)index {
    if (index < 0 || static_cast<std::size_t>(index) >= _dockMemoryChoices.size()) return;
    brimlet::DockBadgeSettings settings = [self store].dockBadgeSettings();
    settings.memoryThreshold = _dockMemoryChoices[static_cast<std::size_t>(index)].value;
    [self store].setDockBadgeSettings(settings);
}

- (void)pickedDockCpu:(NSInteger)index {
    if (index < 0 || static_cast<std::size_t>(index) >= _dockCpuChoices.size()) return;
    brimlet::DockBadgeSettings settings = [self store].dockBadgeSettings();
    settings.cpuThreshold = _dockCpuChoices[static_cast<std::size_t>(index)].value;
    [self store].setDockBadgeSettings(settings);
}

// ---- Launch at login

- (void)changeLoginItem:(bool)on {
    const kestrow::Status status = brimlet::mac::LoginItem::setEnabled(on);
    [self syncLoginItem];
    if (status.failed()) {
        _loginProblem.stringValue = ns(Choices::loginItemFailure(status.message()));
        _loginProblem.textColor = NSColor.systemRedColor;
        _loginProblemRow.hidden = NO;
    }
    [self fitWindow];
}

// The window is as large as its content: a line that appears or goes grows or shrinks it, keeping
// its top edge where it is.
- (void)fitWindow {
    NSWindow* window = self.view.window;
    if (!window) return;
    const NSSize size = self.view.fittingSize;
    const NSRect current = window.frame;
    NSRect frame = [window frameRectForContentRect:NSMakeRect(0, 0, size.width, size.height)];
    frame.origin = NSMakePoint(NSMinX(current), NSMaxY(current) - NSHeight(frame));
    [window setFrame:frame display:YES animate:window.isVisible];
}

// The switch shows what the system says, not what was asked: a refused change snaps back.
- (void)syncLoginItem {
    using brimlet::mac::LoginItem::State;
    const State state = brimlet::mac::LoginItem::current();
    _launchAtLogin.enabled = state != State::unavailable;
    _launchAtLogin.state =
        state == State::enabled || state == State::requiresApproval ? NSControlStateValueOn : NSControlStateValueOff;
    _loginProblemRow.hidden = state != State::requiresApproval;
    if (state == State::requiresApproval) {
        _loginProblem.stringValue = ns(Choices::loginItemApprovalNote);
        _loginProblem.textColor = NSColor.secondaryLabelColor;
    }
}

@end

namespace brimlet::mac {

NSViewController* makeSettingsViewController(BrimletApplication& application) {
    return [[KBSettingsViewController alloc] initWithApplication:application];
}

}  // namespace brimlet::mac
