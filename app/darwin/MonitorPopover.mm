#include "MonitorPopover.hpp"
#include "base/darwin/ViewLayout.hpp"

#include <string>
#include <vector>

#include "MonitorViews.hpp"
#include "WindowContent.hpp"
#include "WindowKit.hpp"
#include "app/desktop/BrimletWindows.hpp"
#include "app/screens/MonitorScreens.hpp"

namespace {

using brimlet::mac::figureFont;
using brimlet::mac::makeLabel;
using brimlet::mac::symbolImage;
using brimlet::mac::toNSString;

constexpr CGFloat popoverWidth = 340;
constexpr CGFloat inset = 14;

NSView* separator() {
    NSBox* line = [[NSBox alloc] initWithFrame:NSZeroRect];
    line.boxType = NSBoxSeparator;
    line.translatesAutoresizingMaskIntoConstraints = NO;
    return line;
}

} // namespace

// One application of the list: its icon, name and figures, and a quit control that shows under the
// pointer ("Hover an app to quit it"); VoiceOver and the keyboard reach the control at all times.
@interface KBAppRowView : NSView
@property(nonatomic, copy) void (^onQuit)(void);
- (void)showRow:(const brimlet::AppListRow&)row icon:(NSImage*)icon;
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
    _quit = [NSButton buttonWithImage:[[NSImage alloc] initWithSize:NSMakeSize(18, 18)]
                               target:self
                               action:@selector(quitPressed:)];
    _quit.bordered = NO;
    _quit.contentTintColor = NSColor.secondaryLabelColor;
    _quit.translatesAutoresizingMaskIntoConstraints = NO;
    _quit.alphaValue = 0;

    for (NSView* view in @[ _icon, _name, _memory, _cpu, _quit ])
        [self addSubview:view];
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

- (void)showRow:(const brimlet::AppListRow&)row icon:(NSImage*)icon {
    _icon.image = icon;
    _name.stringValue = toNSString(row.name);
    _memory.stringValue = toNSString(row.memory);
    _cpu.stringValue = toNSString(row.cpu);
    _quit.image = symbolImage(toNSString(row.quit.symbol), nil);
    _quit.enabled = row.quit.enabled;
    _quit.toolTip = toNSString(row.quit.enabled ? row.quit.spokenLabel() : row.quit.help);
    _quit.accessibilityLabel = toNSString(row.quit.spokenLabel());
    _quit.accessibilityHelp = row.quit.enabled ? nil : toNSString(row.quit.help);
    self.accessibilityLabel = toNSString(row.accessibilityLabel);
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
    brimlet::PopoverScreen _screen;
    NSStackView* _stack;
    NSTextField* _title;
    NSImageView* _noteIcon;
    NSTextField* _noteText;
    NSView* _note;
    NSTextField* _waiting;
    NSStackView* _metrics;
    NSMutableArray<KBMetricRowView*>* _metricRows;
    NSTextField* _appsTitle;
    NSTextField* _appsHint;
    NSStackView* _apps;
    NSMutableArray<KBAppRowView*>* _appRows;
    NSStackView* _footer;
    NSMutableArray<NSButton*>* _footerButtons;
    NSCache<NSString*, NSImage*>* _icons;
    BOOL _noteSeen;
    BOOL _shown;
}

- (instancetype)initWithStore:(brimlet::MonitorStore&)store windows:(brimlet::mac::WindowPresenter&)windows {
    if ((self = [super initWithNibName:nil bundle:nil])) {
        _store = &store;
        _windows = &windows;
        _metricRows = [NSMutableArray array];
        _appRows = [NSMutableArray array];
        _footerButtons = [NSMutableArray array];
        _icons = [[NSCache alloc] init];
    }
    return self;
}

- (void)loadView {
    NSView* root = [[NSView alloc] initWithFrame:NSMakeRect(0, 0, popoverWidth, 480)];

    _title = makeLabel(@"", brimlet::mac::systemFont(13, NSFontWeightBold), NSColor.labelColor);
    _title.accessibilityRole = NSAccessibilityStaticTextRole;

    _noteIcon = [[NSImageView alloc] initWithFrame:NSZeroRect];
    _noteIcon.contentTintColor = NSColor.systemOrangeColor;
    _noteText = [NSTextField wrappingLabelWithString:@""];
    _noteText.font = brimlet::mac::systemFont(11, NSFontWeightRegular);
    _noteText.preferredMaxLayoutWidth = popoverWidth - 2 * inset - 26;
    NSStackView* note = [NSStackView stackViewWithViews:@[ _noteIcon, _noteText ]];
    note.alignment = NSLayoutAttributeTop;
    note.hidden = YES;
    _note = note;

    _waiting = makeLabel(@"", brimlet::mac::systemFont(12, NSFontWeightRegular), NSColor.secondaryLabelColor);

    _metrics = [NSStackView stackViewWithViews:@[]];
    _metrics.orientation = NSUserInterfaceLayoutOrientationVertical;
    _metrics.spacing = 9;

    _appsTitle = makeLabel(@"", brimlet::mac::systemFont(11, NSFontWeightSemibold), NSColor.secondaryLabelColor);
    _appsHint = makeLabel(@"", brimlet::mac::systemFont(11, NSFontWeightRegular), NSColor.tertiaryLabelColor);
    _appsHint.alignment = NSTextAlignmentRight;
    NSStackView* appsHeader = [NSStackView stackViewWithViews:@[ _appsTitle, _appsHint ]];
    appsHeader.distribution = NSStackViewDistributionEqualSpacing;
    _apps = [NSStackView stackViewWithViews:@[]];
    _apps.orientation = NSUserInterfaceLayoutOrientationVertical;
    _apps.spacing = 2;

    _footer = [NSStackView stackViewWithViews:@[]];
    _footer.spacing = 6;

    _stack = [NSStackView
        stackViewWithViews:@[ _title, note, _waiting, _metrics, separator(), appsHeader, _apps, separator(), _footer ]];
    _stack.orientation = NSUserInterfaceLayoutOrientationVertical;
    _stack.alignment = NSLayoutAttributeLeading;
    _stack.spacing = 10;
    _stack.edgeInsets = NSEdgeInsetsMake(inset, inset, inset, inset);
    [root addSubview:_stack];
    kestrow::mac::pinEdges(_stack, root);
    NSMutableArray<NSLayoutConstraint*>* constraints =
        [NSMutableArray arrayWithArray:@[ [root.widthAnchor constraintEqualToConstant:popoverWidth] ]];
    for (NSView* view in @[ note, _metrics, appsHeader, _apps, _footer ])
        [constraints addObject:[view.widthAnchor constraintEqualToAnchor:_stack.widthAnchor constant:-2 * inset]];
    for (NSView* view in _stack.arrangedSubviews)
        if ([view isKindOfClass:NSBox.class])
            [constraints addObject:[view.widthAnchor constraintEqualToAnchor:_stack.widthAnchor constant:-2 * inset]];
    [NSLayoutConstraint activateConstraints:constraints];
    self.view = root;
    [self refresh];
}

// The footer: the windows as titled buttons, quitting the product as a symbol at the trailing end.
- (void)showFooter:(const std::vector<brimlet::MonitorControl>&)controls {
    if (_footerButtons.count == controls.size()) return; // its words never change once made
    for (NSButton* button in _footerButtons)
        [_footer removeView:button];
    [_footerButtons removeAllObjects];
    for (const brimlet::MonitorControl& control : controls) {
        NSButton* button = [NSButton buttonWithTitle:toNSString(control.title)
                                               image:symbolImage(toNSString(control.symbol), nil)
                                              target:self
                                              action:@selector(performCommand:)];
        button.tag = static_cast<NSInteger>(control.action);
        button.controlSize = NSControlSizeSmall;
        button.font = brimlet::mac::systemFont(11, NSFontWeightRegular);
        button.imagePosition = NSImageLeading;
        button.accessibilityLabel = toNSString(control.spokenLabel());
        if (!control.help.empty()) button.toolTip = toNSString(control.help);
        if (control.action == brimlet::MonitorCommand::quitProduct) {
            button.imagePosition = NSImageOnly;
            button.keyEquivalent = @"q";
            button.keyEquivalentModifierMask = NSEventModifierFlagCommand;
            [_footer addView:button inGravity:NSStackViewGravityTrailing];
        } else {
            [_footer addView:button inGravity:NSStackViewGravityLeading];
        }
        [_footerButtons addObject:button];
    }
}

- (void)refresh {
    if (!_store || !self.isViewLoaded) return;
    _screen = brimlet::MonitorScreens::popover(*_store);
    _title.stringValue = toNSString(_screen.title);
    _note.hidden = _screen.note.empty();
    _noteText.stringValue = toNSString(_screen.note);
    _noteIcon.image = symbolImage(toNSString(_screen.noteSymbol), nil);
    if (!_screen.note.empty() && _shown) _noteSeen = YES;
    _waiting.stringValue = toNSString(_screen.waiting);
    _waiting.hidden = _screen.waiting.empty();
    _metrics.hidden = _screen.readings.empty();
    while (_metricRows.count < _screen.readings.size()) {
        KBMetricRowView* row = [[KBMetricRowView alloc] initWithFrame:NSZeroRect];
        [_metricRows addObject:row];
        [_metrics addArrangedSubview:row];
        [row.widthAnchor constraintEqualToAnchor:_metrics.widthAnchor].active = YES;
    }
    for (NSUInteger i = 0; i < _metricRows.count; ++i) {
        _metricRows[i].hidden = i >= _screen.readings.size();
        if (!_metricRows[i].hidden) [_metricRows[i] showReading:_screen.readings[i]];
    }
    _appsTitle.stringValue = toNSString(_screen.appsTitle);
    _appsHint.stringValue = toNSString(_screen.appsHint);
    [self showApps];
    [self showFooter:_screen.footer];
}

- (void)showApps {
    while (_appRows.count < _screen.apps.size()) {
        KBAppRowView* row = [[KBAppRowView alloc] initWithFrame:NSZeroRect];
        const NSUInteger index = _appRows.count;
        __weak KBMonitorPopoverController* weakSelf = self;
        row.onQuit = ^{ [weakSelf askToQuitAppAtIndex:index]; };
        [_appRows addObject:row];
        [_apps addArrangedSubview:row];
        [row.widthAnchor constraintEqualToAnchor:_apps.widthAnchor].active = YES;
    }
    for (NSUInteger i = 0; i < _appRows.count; ++i) {
        KBAppRowView* row = _appRows[i];
        row.hidden = i >= _screen.apps.size();
        if (!row.hidden) [row showRow:_screen.apps[i] icon:[self iconFor:_screen.apps[i]]];
    }
}

- (NSImage*)iconFor:(const brimlet::AppListRow&)row {
    if (!row.bundlePath) return symbolImage(toNSString(row.fallbackSymbol), nil);
    NSString* path = toNSString(*row.bundlePath);
    NSImage* icon = [_icons objectForKey:path];
    if (!icon) {
        icon = [NSWorkspace.sharedWorkspace iconForFile:path];
        [_icons setObject:icon forKey:path];
    }
    return icon;
}

// The question first, over the group as the latest sample has it; then AppQuitter picks whom to ask
// (never this process) from the running applications as they are after the user answered.
- (void)askToQuitAppAtIndex:(NSUInteger)index {
    if (!_store || index >= _screen.apps.size()) return;
    const brimlet::AppListRow row = _screen.apps[index];
    const std::optional<brimlet::AppGroup> group = brimlet::MonitorScreens::group(*_store, row.id);
    if (!group) return;
    const std::optional<brimlet::MonitorDialog> question = brimlet::MonitorScreens::quitDialog(*group);
    if (!question) return;
    NSAlert* alert = brimlet::mac::makeAlert(*question);
    alert.icon = [self iconFor:row];
    brimlet::mac::activateApplication();
    const brimlet::MonitorControl* chosen = brimlet::mac::answer(*question, [alert runModal]);
    if (chosen && chosen->action == brimlet::MonitorCommand::confirmQuitApp) brimlet::mac::quitApplication(*group);
}

- (void)performCommand:(NSButton*)sender {
    switch (static_cast<brimlet::MonitorCommand>(sender.tag)) {
    case brimlet::MonitorCommand::openDashboard:
        [self openWindow:brimlet::BrimletWindows::dashboard];
        break;
    case brimlet::MonitorCommand::openCleanup:
        [self openWindow:brimlet::BrimletWindows::cleanup];
        break;
    case brimlet::MonitorCommand::openSettings:
        [self openWindow:brimlet::BrimletWindows::settings];
        break;
    case brimlet::MonitorCommand::quitProduct:
        [NSApp terminate:sender];
        break;
    default:
        break;
    }
}

- (void)openWindow:(std::string_view)identifier {
    [self.popover performClose:nil];
    if (_windows) _windows->open(identifier);
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
