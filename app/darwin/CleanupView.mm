// The cleanup window's content: one view controller that follows the cleanup store through its
// phases and shows one step at a time. Every decision (what is chosen, what needs approval, what a
// mode does, what the run did) is the store's or the core's; this file only shows and asks.
#include "base/darwin/ViewLayout.hpp"
#include "CleanupView.hpp"

#include "CleanupReportPane.hpp"
#include "CleanupViewSupport.hpp"
#include "app/CleanupSummary.hpp"
#include "core/cleanup/ApprovalScanner.hpp"
#include "core/cleanup/CleanupItem.hpp"
#include "core/cleanup/SizeMeasurer.hpp"
#include "core/common/ByteFormat.hpp"

using namespace brimlet::mac::cleanup;

namespace {

NSString* const tagline = @"Measure first. Auto-clean only what rebuilds itself. You approve anything personal.";

// What a measuring pass looks at, listed from the core's own tables.
NSString* cachesLookedAt() {
    NSMutableArray<NSString*>* titles = [NSMutableArray array];
    for (const auto& entry : brimlet::CleanupCatalog::entries()) [titles addObject:text(entry.title)];
    [titles addObject:@"unavailable simulators"];
    return [titles componentsJoinedByString:@", "];
}

NSString* personalLookedAt() {
    NSMutableArray<NSString*>* titles = [NSMutableArray arrayWithObject:@"node_modules folders of your projects"];
    for (const auto& machine : brimlet::ApprovalScanner::virtualMachines()) [titles addObject:text(machine.title)];
    [titles addObject:@"installers kept twice in Downloads or on the Desktop"];
    return [titles componentsJoinedByString:@", "];
}

NSString* keptPaths() {
    NSMutableArray<NSString*>* paths = [NSMutableArray array];
    for (const std::string& relative : brimlet::CleanupCatalog::keptRelativePaths())
        [paths addObject:[@"~/" stringByAppendingString:text(relative)]];
    return [paths componentsJoinedByString:@", "];
}

NSString* itemCount(std::size_t n) { return text(brimlet::CleanupSummary::count(n, "item", "items")); }

}  // namespace

@interface KBCleanupViewController : NSViewController
- (instancetype)initWithStore:(brimlet::CleanupStore*)store;
@end

@implementation KBCleanupViewController {
    brimlet::CleanupStore* _store;
    kestrow::MainLoop::Token _observation;
    int _shownPhase;
    bool _stopRequested;
    brimlet::DeleteMode _mode;

    NSView* _fullDiskAccessBanner;
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
    NSButton* _trashChoice;
    NSButton* _permanentChoice;
    NSTextField* _modeNote;
    NSTextField* _totalLabel;
    NSButton* _cleanButton;

    KBCleanupReportPane* _report;
    id _keyObserver;
}

- (instancetype)initWithStore:(brimlet::CleanupStore*)store {
    if (!(self = [super initWithNibName:nil bundle:nil])) return nil;
    _store = store;
    _shownPhase = -1;
    _stopRequested = false;
    _mode = brimlet::DeleteMode::trash;
    return self;
}

- (void)dealloc {
    if (_keyObserver) [NSNotificationCenter.defaultCenter removeObserver:_keyObserver];
}

- (void)loadView {
    NSView* root = [[NSView alloc] initWithFrame:NSMakeRect(0, 0, 760, 720)];

    NSImageView* icon = [NSImageView imageViewWithImage:symbol(@"internaldrive", nil)];
    icon.symbolConfiguration = [NSImageSymbolConfiguration configurationWithPointSize:30 weight:NSFontWeightRegular];
    icon.contentTintColor = NSColor.controlAccentColor;
    NSTextField* title = label(@"Free up disk space", systemFont(22, NSFontWeightSemibold));
    [title setAccessibilityRole:NSAccessibilityStaticTextRole];
    NSTextField* subtitle = label(tagline, systemFont(bodySize()), NSColor.secondaryLabelColor);
    NSStackView* titles = stack(@[ title, subtitle ], NSUserInterfaceLayoutOrientationVertical, 2);
    NSStackView* header = stack(@[ icon, titles ], NSUserInterfaceLayoutOrientationHorizontal, 12);

    _fullDiskAccessBanner = [self makeFullDiskAccessBanner];
    _content = [[NSView alloc] initWithFrame:NSZeroRect];

    NSStackView* column = stack(@[ header, _fullDiskAccessBanner, _content ], NSUserInterfaceLayoutOrientationVertical, 16);
    column.edgeInsets = NSEdgeInsetsMake(20, 24, 20, 24);
    [root addSubview:column];
    kestrow::mac::pinEdges(column, root);
    [NSLayoutConstraint activateConstraints:@[
        [_fullDiskAccessBanner.widthAnchor constraintEqualToAnchor:column.widthAnchor constant:-48],
        [_content.widthAnchor constraintEqualToAnchor:column.widthAnchor constant:-48],
    ]];
    _content.translatesAutoresizingMaskIntoConstraints = NO;
    _fullDiskAccessBanner.translatesAutoresizingMaskIntoConstraints = NO;
    [_content setContentHuggingPriority:NSLayoutPriorityDefaultLow forOrientation:NSLayoutConstraintOrientationVertical];
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

- (NSView*)makeFullDiskAccessBanner {
    NSImageView* icon = [NSImageView imageViewWithImage:symbol(@"lock.shield", @"Full Disk Access")];
    icon.contentTintColor = NSColor.systemOrangeColor;
    NSTextField* note = paragraph(@"Full Disk Access is off, so some protected folders cannot be read: sizes may "
                                  @"be lower than they are and some items may be missing.",
                                  NSColor.labelColor);
    NSButton* open = button(@"Open Privacy & Security…", @"gearshape", self, @selector(openFullDiskAccess:));
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
    [box setAccessibilityLabel:@"Full Disk Access is off"];
    box.hidden = YES;
    return box;
}

- (void)openFullDiskAccess:(id)sender {
    (void)sender;
    if (NSURL* url = [NSURL URLWithString:text(brimlet::FullDiskAccess::settingsURL)])
        [NSWorkspace.sharedWorkspace openURL:url];
}

// Shows what the store holds now: the step for its phase, then that step's figures.
- (void)render {
    if (!self.viewLoaded) return;
    const auto& granted = _store->fullDiskAccess();
    _fullDiskAccessBanner.hidden = !(granted && !*granted);

    const brimlet::CleanupPhase phase = _store->phase();
    if (phase.value != _shownPhase) {
        _shownPhase = phase.value;
        _stopRequested = false;
        [self showPane:[self paneForPhase:phase]];
    }
    switch (phase.value) {
        case brimlet::CleanupPhase::measuring:
        case brimlet::CleanupPhase::scanning:
        case brimlet::CleanupPhase::cleaning: [self updateBusy:phase]; break;
        case brimlet::CleanupPhase::ready: [self updateReady]; break;
        case brimlet::CleanupPhase::finished: [_report refresh]; break;
        case brimlet::CleanupPhase::idle: break;
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
        case brimlet::CleanupPhase::idle: return [self idlePane];
        case brimlet::CleanupPhase::measuring:
        case brimlet::CleanupPhase::scanning:
        case brimlet::CleanupPhase::cleaning: return [self busyPane:phase];
        case brimlet::CleanupPhase::ready: return [self readyPane];
        case brimlet::CleanupPhase::finished: break;
    }
    __weak KBCleanupViewController* weakSelf = self;
    _report = [[KBCleanupReportPane alloc] initWithStore:_store
                                               startOver:^{
                                                 [weakSelf startOver];
                                               }];
    return _report.view;
}

// MARK: idle

- (NSView*)idlePane {
    NSTextField* heading = label(@"What will be looked at", systemFont(15, NSFontWeightSemibold));
    auto group = [](NSString* symbolName, NSString* title, NSString* body) {
        NSImageView* icon = [NSImageView imageViewWithImage:symbol(symbolName, nil)];
        icon.contentTintColor = NSColor.secondaryLabelColor;
        NSTextField* name = label(title, systemFont(bodySize(), NSFontWeightMedium));
        NSStackView* lines = stack(@[ name, paragraph(body) ], NSUserInterfaceLayoutOrientationVertical, 2);
        NSStackView* row = stack(@[ icon, lines ], NSUserInterfaceLayoutOrientationHorizontal, 10);
        row.alignment = NSLayoutAttributeTop;
        return row;
    };
    NSStackView* caches = group(@"arrow.triangle.2.circlepath", @"Caches that rebuild themselves — chosen for you",
                                cachesLookedAt());
    NSStackView* personal = group(@"person.crop.circle.badge.checkmark",
                                  @"Personal items — only what you approve, moved to the Trash", personalLookedAt());
    NSStackView* kept = group(@"lock", @"Always kept", keptPaths());
    NSTextField* note = paragraph(@"Nothing is deleted while measuring. Every path is checked again right before it "
                                  @"is removed, and protected folders are never touched.");
    NSButton* measure = button(@"Measure", @"magnifyingglass", self, @selector(measure:));
    measure.keyEquivalent = @"\r";
    [measure setAccessibilityLabel:@"Measure what can be cleaned"];

    NSStackView* pane =
        stack(@[ heading, caches, personal, kept, note, measure ], NSUserInterfaceLayoutOrientationVertical, 14);
    for (NSView* view in @[ caches, personal, kept, note ]) fillWidth(view, pane);
    return pane;
}

- (void)measure:(id)sender {
    (void)sender;
    if (!_store->start()) NSBeep();
}

// MARK: measuring, scanning, cleaning

- (NSView*)busyPane:(brimlet::CleanupPhase)phase {
    _progress = [[NSProgressIndicator alloc] initWithFrame:NSZeroRect];
    _progress.style = NSProgressIndicatorStyleBar;
    _progress.indeterminate = phase != brimlet::CleanupPhase::cleaning;
    _progress.minValue = 0;
    [_progress startAnimation:nil];
    [_progress setAccessibilityLabel:phase == brimlet::CleanupPhase::cleaning ? @"Cleaning progress"
                                                                               : @"Measuring progress"];
    _progressLabel = label(@"", systemFont(bodySize()));
    _cancelButton = button(@"Cancel", @"xmark.circle", self, @selector(cancel:));
    _cancelButton.keyEquivalent = @"\x1b";  // Escape
    NSStackView* pane =
        stack(@[ _progressLabel, _progress, _cancelButton ], NSUserInterfaceLayoutOrientationVertical, 12);
    fillWidth(_progress, pane);
    return pane;
}

- (void)updateBusy:(brimlet::CleanupPhase)phase {
    const brimlet::CleanupStore::Progress& progress = _store->progress();
    NSString* what = nil;
    if (phase == brimlet::CleanupPhase::measuring) {
        what = progress.total == 0 ? @"Measuring developer caches…"
                                   : [NSString stringWithFormat:@"Measuring developer caches — %zu of %zu",
                                                                progress.completed, progress.total];
    } else if (phase == brimlet::CleanupPhase::scanning) {
        what = @"Looking for personal items you may want to clean…";
    } else if (_stopRequested) {
        what = @"Stopping after the current item…";
    } else if (progress.current.empty()) {
        what = @"Starting…";
    } else {
        what = [NSString stringWithFormat:@"Cleaning “%@” — %zu of %zu", text(progress.current),
                                          progress.completed + 1, progress.total];
    }
    _progressLabel.stringValue = what;
    if (progress.total != 0) {
        _progress.indeterminate = NO;
        _progress.maxValue = static_cast<double>(progress.total);
        _progress.doubleValue = static_cast<double>(progress.completed);
    }
    [_progress setAccessibilityValueDescription:what];
    _cancelButton.enabled = !_stopRequested;
}

- (void)cancel:(id)sender {
    (void)sender;
    _stopRequested = _store->phase() == brimlet::CleanupPhase::cleaning;
    _store->cancel();
    [self render];
}

// MARK: ready

- (NSView*)readyPane {
    _spaceLabel = label(@"", systemFont(bodySize()), NSColor.secondaryLabelColor);
    _homeLabel = paragraph(@"", NSColor.secondaryLabelColor);
    __weak KBCleanupViewController* weakSelf = self;
    _items = [[KBCleanupItemsTable alloc] initWithStore:_store
                                               onToggle:[weakSelf](const std::string& id, bool wanted) {
                                                 [weakSelf toggle:id wanted:wanted];
                                               }];
    [_items reloadItems];
    NSScrollView* list = _items.view;
    [list setContentHuggingPriority:NSLayoutPriorityDefaultLow forOrientation:NSLayoutConstraintOrientationVertical];
    [list.heightAnchor constraintGreaterThanOrEqualToConstant:200].active = YES;

    _trashChoice = [NSButton radioButtonWithTitle:text(brimlet::DeleteMode(brimlet::DeleteMode::trash).title())
                                           target:self
                                           action:@selector(chooseMode:)];
    _permanentChoice = [NSButton radioButtonWithTitle:text(brimlet::DeleteMode(brimlet::DeleteMode::permanent).title())
                                               target:self
                                               action:@selector(chooseMode:)];
    NSTextField* modeTitle = label(@"Remove by:", systemFont(bodySize()));
    NSStackView* modes =
        stack(@[ modeTitle, _trashChoice, _permanentChoice ], NSUserInterfaceLayoutOrientationHorizontal, 12);
    _modeNote = paragraph(@"");

    _totalLabel = label(@"", digitsFont(15, NSFontWeightSemibold));
    NSButton* again = button(@"Measure Again", @"arrow.clockwise", self, @selector(measure:));
    _cleanButton = button(@"Clean…", @"trash", self, @selector(clean:));
    _cleanButton.keyEquivalent = @"\r";
    NSView* spacer = [[NSView alloc] initWithFrame:NSZeroRect];
    [spacer setContentHuggingPriority:1 forOrientation:NSLayoutConstraintOrientationHorizontal];
    NSStackView* bottom =
        stack(@[ _totalLabel, spacer, again, _cleanButton ], NSUserInterfaceLayoutOrientationHorizontal, 8);

    NSStackView* pane =
        stack(@[ _spaceLabel, _homeLabel, list, modes, _modeNote, bottom ], NSUserInterfaceLayoutOrientationVertical, 10);
    for (NSView* view in @[ _homeLabel, list, _modeNote, bottom ]) fillWidth(view, pane);
    return pane;
}

- (void)updateReady {
    if (const auto& measured = _store->measured())
        _spaceLabel.stringValue = [NSString stringWithFormat:@"%@ free of %@ on this Mac",
                                                             text(brimlet::ByteFormat::string(measured->freeBytes)),
                                                             text(brimlet::ByteFormat::string(measured->totalBytes))];
    NSString* home = nil;
    if (_store->isMeasuringHome()) {
        home = @"Measuring the folders of your home folder…";
    } else if (const auto& usage = _store->homeUsage()) {
        const std::string largest = brimlet::CleanupSummary::largestFolders(*usage, 5);
        if (!largest.empty()) home = [@"Largest in your home folder: " stringByAppendingString:text(largest)];
    }
    _homeLabel.stringValue = home != nil ? home : @"";
    _homeLabel.hidden = home == nil;
    [_items refreshChoices];

    const brimlet::CleanupStore::SelectionSummary chosen = _store->selectionSummary();
    // The choice only matters while something chosen could go for good; otherwise all goes to the Trash.
    const bool choosable = chosen.permanentApplies;
    const brimlet::DeleteMode shown = choosable ? _mode : brimlet::DeleteMode(brimlet::DeleteMode::trash);
    _trashChoice.state = shown == brimlet::DeleteMode::trash ? NSControlStateValueOn : NSControlStateValueOff;
    _permanentChoice.state = shown == brimlet::DeleteMode::permanent ? NSControlStateValueOn : NSControlStateValueOff;
    _trashChoice.enabled = _permanentChoice.enabled = choosable;

    NSMutableArray<NSString*>* notes = [NSMutableArray array];
    if (shown == brimlet::DeleteMode::trash && chosen.count != 0)
        [notes addObject:text(brimlet::CleanupReport::trashNote)];
    if (shown == brimlet::DeleteMode::permanent)
        [notes addObject:@"Caches are removed for good; they rebuild themselves when needed."];
    if (shown == brimlet::DeleteMode::permanent && chosen.personal != 0)
        [notes addObject:@"Personal items still go to the Trash: they are never deleted permanently."];
    if (shown == brimlet::DeleteMode::trash && chosen.needsPermanent)
        [notes addObject:@"Unavailable simulators can only be deleted permanently; with Move to Trash they are "
                         @"skipped."];
    _modeNote.stringValue = [notes componentsJoinedByString:@" "];

    if (chosen.count == 0) {
        _totalLabel.stringValue = @"Nothing chosen";
    } else {
        NSString* total = [NSString stringWithFormat:@"%@ to be freed from %@",
                                                     text(brimlet::ByteFormat::string(chosen.bytes)),
                                                     itemCount(chosen.count)];
        if (chosen.unmeasured != 0)
            total = [total stringByAppendingFormat:@", plus %@ measured when cleaned", itemCount(chosen.unmeasured)];
        _totalLabel.stringValue = total;
    }
    _cleanButton.enabled = chosen.count != 0;
}

- (void)chooseMode:(NSButton*)sender {
    _mode = sender == _permanentChoice ? brimlet::DeleteMode::permanent : brimlet::DeleteMode::trash;
    [self updateReady];
}

- (void)toggle:(const std::string&)identifier wanted:(bool)wanted {
    if (!wanted || !_store->needsApproval(identifier)) {
        if (!_store->setSelected(identifier, wanted)) NSBeep();
        return;
    }
    const brimlet::CleanupItem* item = _store->item(identifier);
    NSWindow* window = self.view.window;
    if (!item || !window) return;
    // One explicit confirmation per personal item; the clean then binds exactly the approved items.
    NSAlert* alert = [[NSAlert alloc] init];
    alert.alertStyle = NSAlertStyleWarning;
    alert.icon = symbol(@"person.crop.circle.badge.exclamationmark", nil);
    alert.messageText = [NSString stringWithFormat:@"Include “%@”?", text(item->title)];
    NSMutableArray<NSString*>* lines = [NSMutableArray arrayWithObjects:text(item->detail), text(item->url), nil];
    if (item->size)
        [lines addObject:[NSString stringWithFormat:@"It takes %@ on disk.", text(brimlet::ByteFormat::string(*item->size))]];
    if (item->note) [lines addObject:text(*item->note)];
    if (item->requiresExisting)
        [lines addObject:[NSString stringWithFormat:@"The copy at %@ is kept.", text(*item->requiresExisting)]];
    [lines addObject:@"This is your own data. It will be moved to the Trash, never deleted permanently, and you can "
                     @"put it back from there until you empty the Trash."];
    alert.informativeText = [lines componentsJoinedByString:@"\n\n"];
    [alert addButtonWithTitle:@"Approve"];
    [alert addButtonWithTitle:@"Cancel"];
    const std::string id = identifier;
    brimlet::CleanupStore* store = _store;
    __weak KBCleanupViewController* weakSelf = self;
    [alert beginSheetModalForWindow:window
                  completionHandler:^(NSModalResponse response) {
                    // The store may have moved on (a new run) while the sheet was up: it checks the id.
                    if (response == NSAlertFirstButtonReturn && weakSelf && !store->approvePersonal(id)) NSBeep();
                  }];
}

- (void)clean:(id)sender {
    (void)sender;
    const brimlet::CleanupStore::SelectionSummary chosen = _store->selectionSummary();
    NSWindow* window = self.view.window;
    if (chosen.count == 0 || !window) return;
    const brimlet::DeleteMode mode = chosen.permanentApplies ? _mode : brimlet::DeleteMode(brimlet::DeleteMode::trash);
    const bool permanent = mode == brimlet::DeleteMode::permanent;

    NSAlert* alert = [[NSAlert alloc] init];
    alert.alertStyle = permanent ? NSAlertStyleCritical : NSAlertStyleWarning;
    alert.messageText = [NSString stringWithFormat:@"Clean %@?", itemCount(chosen.count)];
    NSString* amount = text(brimlet::ByteFormat::string(chosen.bytes));
    alert.informativeText =
        permanent ? [NSString stringWithFormat:@"About %@ will be deleted permanently; personal items go to the "
                                               @"Trash. Each path is checked again right before it is removed.",
                                               amount]
                  : [NSString stringWithFormat:@"About %@ will be moved to the Trash. %@ Each path is checked again "
                                               @"right before it is removed.",
                                               amount, text(brimlet::CleanupReport::trashNote)];
    NSButton* confirm = [alert addButtonWithTitle:permanent ? @"Delete Permanently" : @"Move to Trash"];
    confirm.hasDestructiveAction = permanent;
    [alert addButtonWithTitle:@"Cancel"];
    brimlet::CleanupStore* store = _store;
    __weak KBCleanupViewController* weakSelf = self;
    [alert beginSheetModalForWindow:window
                  completionHandler:^(NSModalResponse response) {
                    if (response == NSAlertFirstButtonReturn && weakSelf && !store->clean(mode)) NSBeep();
                  }];
}

// MARK: finished

- (void)startOver {
    _store->resetToIdle();
}

@end

namespace brimlet::mac {

NSViewController* makeCleanupViewController(BrimletApplication& application) {
    return [[KBCleanupViewController alloc] initWithStore:&application.cleanup()];
}

}  // namespace brimlet::mac
