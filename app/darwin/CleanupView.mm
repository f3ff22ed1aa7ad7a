// The cleanup window's content: one view controller that follows the cleanup store through its
// phases and shows one step at a time. What each step says, what its controls do and which
// questions it asks are the presenter's (app/screens/CleanupScreen); this file lays them out and
// hands the user's actions back.
#include "CleanupView.hpp"
#include "base/darwin/ViewLayout.hpp"

#include "CleanupReportPane.hpp"
#include "CleanupViewSupport.hpp"

using namespace brimlet::mac::cleanup;

@interface KBCleanupViewController : NSViewController
- (instancetype)initWithStore:(brimlet::CleanupStore*)store;
@end

@implementation KBCleanupViewController {
    brimlet::CleanupStore* _store;
    std::unique_ptr<brimlet::CleanupPresenter> _presenter;
    brimlet::CleanupScreen _screen;
    kestrow::MainLoop::Token _observation;
    int _shownPhase;

    NSView* _fullDiskAccessBanner;
    NSTextField* _refusals;
    NSView* _content;
    NSView* _pane;

    // The busy step.
    NSProgressIndicator* _progress;
    NSTextField* _progressLabel;
    NSButton* _cancelButton;

    // The ready step.
    KBCleanupItemsTable* _items;
    NSTextField* _spaceLabel;
    NSTextField* _homeLabel;
    NSMutableArray<NSButton*>* _modeChoices;
    NSTextField* _modeNote;
    NSTextField* _totalLabel;
    NSButton* _measureAgain;
    NSButton* _cleanButton;

    KBCleanupReportPane* _report;
    id _keyObserver;
}

- (instancetype)initWithStore:(brimlet::CleanupStore*)store {
    if (!(self = [super initWithNibName:nil bundle:nil])) return nil;
    _store = store;
    _presenter = std::make_unique<brimlet::CleanupPresenter>(*store);
    _shownPhase = -1;
    return self;
}

- (void)dealloc {
    if (_keyObserver) [NSNotificationCenter.defaultCenter removeObserver:_keyObserver];
}

- (void)loadView {
    _screen = _presenter->screen();
    NSView* root = [[NSView alloc] initWithFrame:NSMakeRect(0, 0, 760, 720)];

    NSImageView* icon = [NSImageView imageViewWithImage:symbol(toNSString(_screen.symbol), nil)];
    icon.symbolConfiguration = [NSImageSymbolConfiguration configurationWithPointSize:30 weight:NSFontWeightRegular];
    icon.contentTintColor = NSColor.controlAccentColor;
    NSTextField* title = label(toNSString(_screen.title), systemFont(22, NSFontWeightSemibold));
    [title setAccessibilityRole:NSAccessibilityStaticTextRole];
    NSTextField* subtitle = label(toNSString(_screen.tagline), systemFont(bodySize()), NSColor.secondaryLabelColor);
    NSStackView* titles = stack(@[ title, subtitle ], NSUserInterfaceLayoutOrientationVertical, 2);
    NSStackView* header = stack(@[ icon, titles ], NSUserInterfaceLayoutOrientationHorizontal, 12);

    _fullDiskAccessBanner = [self makeFullDiskAccessBanner:_screen.fullDiskAccess];
    _refusals = paragraph(@"", NSColor.systemOrangeColor);
    _refusals.hidden = YES;
    _content = [[NSView alloc] initWithFrame:NSZeroRect];

    NSStackView* column =
        stack(@[ header, _fullDiskAccessBanner, _refusals, _content ], NSUserInterfaceLayoutOrientationVertical, 16);
    column.edgeInsets = NSEdgeInsetsMake(20, 24, 20, 24);
    [root addSubview:column];
    kestrow::mac::pinEdges(column, root);
    [NSLayoutConstraint activateConstraints:@[
        [_fullDiskAccessBanner.widthAnchor constraintEqualToAnchor:column.widthAnchor constant:-48],
        [_content.widthAnchor constraintEqualToAnchor:column.widthAnchor constant:-48],
    ]];
    _content.translatesAutoresizingMaskIntoConstraints = NO;
    _fullDiskAccessBanner.translatesAutoresizingMaskIntoConstraints = NO;
    [_content setContentHuggingPriority:NSLayoutPriorityDefaultLow
                         forOrientation:NSLayoutConstraintOrientationVertical];
    self.view = root;

    __weak KBCleanupViewController* weakSelf = self;
    _observation = _store->observe([weakSelf] { [weakSelf render]; });
    [self render];
}

- (void)viewDidAppear {
    [super viewDidAppear];
    NSWindow* window = self.view.window;
    window.autorecalculatesKeyViewLoop = YES;
    if (_keyObserver || !window) return;
    // The user may come back from System Settings with Full Disk Access granted: look again.
    __weak KBCleanupViewController* weakSelf = self;
    _keyObserver = [NSNotificationCenter.defaultCenter addObserverForName:NSWindowDidBecomeKeyNotification
                                                                   object:window
                                                                    queue:NSOperationQueue.mainQueue
                                                               usingBlock:^(NSNotification* note) {
                                                                   (void)note;
                                                                   [weakSelf refreshFullDiskAccess];
                                                               }];
    [self refreshFullDiskAccess];
}

- (void)refreshFullDiskAccess {
    _store->refreshFullDiskAccess();
}

- (NSView*)makeFullDiskAccessBanner:(const brimlet::CleanupScreen::Banner&)banner {
    NSImageView* icon =
        [NSImageView imageViewWithImage:symbol(toNSString(banner.symbol), toNSString(banner.accessibilityLabel))];
    icon.contentTintColor = NSColor.systemOrangeColor;
    NSTextField* note = paragraph(toNSString(banner.text), NSColor.labelColor);
    NSButton* open = button(banner.openSettings, self, @selector(controlFired:));
    NSStackView* row = stack(@[ icon, note, open ], NSUserInterfaceLayoutOrientationHorizontal, 10);
    row.edgeInsets = NSEdgeInsetsMake(8, 10, 8, 10);

    NSBox* box = [[NSBox alloc] initWithFrame:NSZeroRect];
    box.boxType = NSBoxCustom;
    box.cornerRadius = 8;
    box.borderColor = NSColor.separatorColor;
    box.fillColor = [NSColor.systemOrangeColor colorWithAlphaComponent:0.12];
    box.contentView = row;
    [box setAccessibilityElement:YES];
    [box setAccessibilityRole:NSAccessibilityGroupRole];
    [box setAccessibilityLabel:toNSString(banner.accessibilityLabel)];
    box.hidden = !banner.visible;
    return box;
}

// Hands a control's action to the presenter and follows its answer: a refusal beeps, a question
// is asked as a sheet, and some actions need the window system (a URL, a save panel).
- (void)perform:(const brimlet::CleanupControl&)control {
    if (control.action == brimlet::CleanupCommand::openFullDiskAccess) {
        if (NSURL* url = [NSURL URLWithString:toNSString(_screen.fullDiskAccess.settingsURL)])
            [NSWorkspace.sharedWorkspace openURL:url];
        return;
    }
    brimlet::CleanupPresenter::Outcome outcome = _presenter->perform(control.action, control.target);
    if (!outcome.accepted) {
        NSBeep();
        return;
    }
    NSWindow* window = self.view.window;
    if (!outcome.dialog || !window) return;
    __weak KBCleanupViewController* weakSelf = self;
    askDialog(*outcome.dialog, window, [weakSelf](const brimlet::CleanupControl& answer) {
        // The store may have moved on (a new run) while the sheet was up: the presenter checks.
        [weakSelf perform:answer];
    });
}

// The controls built from the screen carry their action in the tag; rows carry their target.
- (void)controlFired:(NSButton*)sender {
    const auto action = static_cast<brimlet::CleanupCommand>(sender.tag);
    for (const brimlet::CleanupControl* control :
         {&_screen.fullDiskAccess.openSettings, &_screen.idle.measure, &_screen.busy.cancel,
          &_screen.ready.measureAgain, &_screen.ready.clean}) {
        if (control->action == action) {
            [self perform:*control];
            return;
        }
    }
    for (const brimlet::CleanupScreen::ModeOption& option : _screen.ready.modes)
        if (option.choose.action == action) [self perform:option.choose];
}

// Shows what the store holds now: the step for its phase, then that step's figures.
- (void)render {
    if (!self.viewLoaded) return;
    _screen = _presenter->screen();
    _fullDiskAccessBanner.hidden = !_screen.fullDiskAccess.visible;
    NSMutableArray<NSString*>* refusals = [NSMutableArray array];
    for (const std::string& line : _screen.refusals)
        [refusals addObject:toNSString(line)];
    _refusals.stringValue = [refusals componentsJoinedByString:@"\n"];
    _refusals.hidden = refusals.count == 0;

    const brimlet::CleanupPhase phase = _screen.step;
    if (phase.value != _shownPhase) {
        _shownPhase = phase.value;
        [self showPane:[self paneForPhase:phase]];
    }
    switch (phase.value) {
    case brimlet::CleanupPhase::measuring:
    case brimlet::CleanupPhase::scanning:
    case brimlet::CleanupPhase::cleaning:
        [self updateBusy];
        break;
    case brimlet::CleanupPhase::ready:
        [self updateReady];
        break;
    case brimlet::CleanupPhase::finished:
        [_report show:_screen.finished];
        break;
    case brimlet::CleanupPhase::idle:
        break;
    }
}

- (void)showPane:(NSView*)pane {
    [_pane removeFromSuperview];
    _pane = pane;
    pane.translatesAutoresizingMaskIntoConstraints = NO;
    [_content addSubview:pane];
    [NSLayoutConstraint activateConstraints:@[
        [pane.leadingAnchor constraintEqualToAnchor:_content.leadingAnchor],
        [pane.trailingAnchor constraintEqualToAnchor:_content.trailingAnchor],
        [pane.topAnchor constraintEqualToAnchor:_content.topAnchor],
        [pane.bottomAnchor constraintLessThanOrEqualToAnchor:_content.bottomAnchor],
    ]];
    // The step's list fills the window; the other steps sit at the top.
    if (_shownPhase == brimlet::CleanupPhase::ready || _shownPhase == brimlet::CleanupPhase::finished)
        [pane.bottomAnchor constraintEqualToAnchor:_content.bottomAnchor].active = YES;
    [self.view.window recalculateKeyViewLoop];
}

- (NSView*)paneForPhase:(brimlet::CleanupPhase)phase {
    switch (phase.value) {
    case brimlet::CleanupPhase::idle:
        return [self idlePane];
    case brimlet::CleanupPhase::measuring:
    case brimlet::CleanupPhase::scanning:
    case brimlet::CleanupPhase::cleaning:
        return [self busyPane];
    case brimlet::CleanupPhase::ready:
        return [self readyPane];
    case brimlet::CleanupPhase::finished:
        break;
    }
    __weak KBCleanupViewController* weakSelf = self;
    _report = [[KBCleanupReportPane alloc]
        initWithPresenter:_presenter.get()
                  perform:[weakSelf](const brimlet::CleanupControl& control) { [weakSelf perform:control]; }];
    return _report.view;
}

// MARK: idle

- (NSView*)idlePane {
    const brimlet::CleanupScreen::Idle& idle = _screen.idle;
    NSMutableArray<NSView*>* views = [NSMutableArray array];
    [views addObject:label(toNSString(idle.heading), systemFont(15, NSFontWeightSemibold))];
    NSMutableArray<NSView*>* wide = [NSMutableArray array];
    for (const brimlet::CleanupScreen::Group& group : idle.groups) {
        NSImageView* icon = [NSImageView imageViewWithImage:symbol(toNSString(group.symbol), nil)];
        icon.contentTintColor = NSColor.secondaryLabelColor;
        NSTextField* name = label(toNSString(group.title), systemFont(bodySize(), NSFontWeightMedium));
        NSStackView* lines =
            stack(@[ name, paragraph(toNSString(group.body)) ], NSUserInterfaceLayoutOrientationVertical, 2);
        NSStackView* row = stack(@[ icon, lines ], NSUserInterfaceLayoutOrientationHorizontal, 10);
        row.alignment = NSLayoutAttributeTop;
        [views addObject:row];
        [wide addObject:row];
    }
    NSTextField* note = paragraph(toNSString(idle.note));
    [views addObject:note];
    [wide addObject:note];
    [views addObject:button(idle.measure, self, @selector(controlFired:))];

    NSStackView* pane = stack(views, NSUserInterfaceLayoutOrientationVertical, 14);
    for (NSView* view in wide)
        fillWidth(view, pane);
    return pane;
}

// MARK: measuring, scanning, cleaning

- (NSView*)busyPane {
    const brimlet::CleanupScreen::Busy& busy = _screen.busy;
    _progress = [[NSProgressIndicator alloc] initWithFrame:NSZeroRect];
    _progress.style = NSProgressIndicatorStyleBar;
    _progress.indeterminate = busy.total == 0;
    _progress.minValue = 0;
    [_progress startAnimation:nil];
    [_progress setAccessibilityLabel:toNSString(busy.progressLabel)];
    _progressLabel = label([NSString string], systemFont(bodySize()));
    _cancelButton = button(busy.cancel, self, @selector(controlFired:));
    NSStackView* pane =
        stack(@[ _progressLabel, _progress, _cancelButton ], NSUserInterfaceLayoutOrientationVertical, 12);
    fillWidth(_progress, pane);
    return pane;
}

- (void)updateBusy {
    const brimlet::CleanupScreen::Busy& busy = _screen.busy;
    NSString* line = toNSString(busy.line);
    _progressLabel.stringValue = line;
    if (busy.total != 0) {
        _progress.indeterminate = NO;
        _progress.maxValue = static_cast<double>(busy.total);
        _progress.doubleValue = static_cast<double>(busy.completed);
    }
    [_progress setAccessibilityValueDescription:line];
    apply(_cancelButton, busy.cancel);
}

// MARK: ready

- (NSView*)readyPane {
    const brimlet::CleanupScreen::Ready& ready = _screen.ready;
    _spaceLabel = label([NSString string], systemFont(bodySize()), NSColor.secondaryLabelColor);
    _homeLabel = paragraph([NSString string], NSColor.secondaryLabelColor);
    __weak KBCleanupViewController* weakSelf = self;
    _items = [[KBCleanupItemsTable alloc]
        initWithLabel:ready.itemsLabel
              columns:ready.columns
             onToggle:[weakSelf](const brimlet::CleanupControl& include) { [weakSelf perform:include]; }];
    NSScrollView* list = _items.view;
    [list setContentHuggingPriority:NSLayoutPriorityDefaultLow forOrientation:NSLayoutConstraintOrientationVertical];
    [list.heightAnchor constraintGreaterThanOrEqualToConstant:200].active = YES;

    NSMutableArray<NSView*>* modeRow =
        [NSMutableArray arrayWithObject:label(toNSString(ready.modeTitle), systemFont(bodySize()))];
    _modeChoices = [NSMutableArray array];
    for (const brimlet::CleanupScreen::ModeOption& option : ready.modes) {
        NSButton* radio = [NSButton radioButtonWithTitle:toNSString(option.choose.title)
                                                  target:self
                                                  action:@selector(controlFired:)];
        radio.tag = static_cast<NSInteger>(option.choose.action);
        [_modeChoices addObject:radio];
        [modeRow addObject:radio];
    }
    NSStackView* modes = stack(modeRow, NSUserInterfaceLayoutOrientationHorizontal, 12);
    _modeNote = paragraph([NSString string]);

    _totalLabel = label([NSString string], digitsFont(15, NSFontWeightSemibold));
    _measureAgain = button(ready.measureAgain, self, @selector(controlFired:));
    _cleanButton = button(ready.clean, self, @selector(controlFired:));
    NSView* spacer = [[NSView alloc] initWithFrame:NSZeroRect];
    [spacer setContentHuggingPriority:1 forOrientation:NSLayoutConstraintOrientationHorizontal];
    NSStackView* bottom =
        stack(@[ _totalLabel, spacer, _measureAgain, _cleanButton ], NSUserInterfaceLayoutOrientationHorizontal, 8);

    NSStackView* pane = stack(@[ _spaceLabel, _homeLabel, list, modes, _modeNote, bottom ],
                              NSUserInterfaceLayoutOrientationVertical, 10);
    for (NSView* view in @[ _homeLabel, list, _modeNote, bottom ])
        fillWidth(view, pane);
    return pane;
}

- (void)updateReady {
    const brimlet::CleanupScreen::Ready& ready = _screen.ready;
    _spaceLabel.stringValue = toNSString(ready.space);
    _homeLabel.stringValue = toNSString(ready.home);
    _homeLabel.hidden = ready.home.empty();
    [_items showRows:ready.rows];
    for (std::size_t i = 0; i < ready.modes.size() && i < _modeChoices.count; ++i) {
        NSButton* radio = _modeChoices[i];
        radio.state = ready.modes[i].chosen ? NSControlStateValueOn : NSControlStateValueOff;
        radio.enabled = ready.modes[i].choose.enabled;
    }
    _modeNote.stringValue = toNSString(ready.modeNote);
    _totalLabel.stringValue = toNSString(ready.total);
    apply(_measureAgain, ready.measureAgain);
    apply(_cleanButton, ready.clean);
}

@end

namespace brimlet::mac {

NSViewController* makeCleanupViewController(BrimletApplication& application) {
    return [[KBCleanupViewController alloc] initWithStore:&application.cleanup()];
}

} // namespace brimlet::mac
