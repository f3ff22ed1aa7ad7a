// The settings window draws what SettingsPresenter describes: sections of rows, each a caption and a
// checkbox, menu or note. A change goes back through the presenter to the store (which stores the
// value and lets the desktop follow); the window is drawn again whenever the settings change
// elsewhere, for example the floating monitor toggled with its shortcut.
#include <functional>
#include <string>
#include <vector>

#include "LoginItem.hpp"
#include "WindowContent.hpp"
#include "WindowKit.hpp"
#include "app/screens/SettingsScreen.hpp"
#include "base/Log.hpp"
#include "base/darwin/ViewLayout.hpp"

using brimlet::mac::toNSString;

namespace {

constexpr CGFloat noteWidth = 420;

NSColor* toneColor(brimlet::screens::Tone tone) {
    switch (tone) {
    case brimlet::screens::Tone::plain:
        return NSColor.labelColor;
    case brimlet::screens::Tone::secondary:
        return NSColor.secondaryLabelColor;
    case brimlet::screens::Tone::success:
        return NSColor.systemGreenColor;
    case brimlet::screens::Tone::warning:
        return NSColor.systemOrangeColor;
    case brimlet::screens::Tone::failure:
        return NSColor.systemRedColor;
    }
    return NSColor.secondaryLabelColor;
}

brimlet::LoginItemState loginState() {
    using brimlet::mac::LoginItem::State;
    switch (brimlet::mac::LoginItem::current()) {
    case State::enabled:
        return brimlet::LoginItemState::enabled;
    case State::disabled:
        return brimlet::LoginItemState::disabled;
    case State::requiresApproval:
        return brimlet::LoginItemState::requiresApproval;
    case State::unavailable:
        return brimlet::LoginItemState::unavailable;
    }
    return brimlet::LoginItemState::unavailable;
}

} // namespace

@interface KBSettingsViewController : NSViewController
- (instancetype)initWithApplication:(brimlet::BrimletApplication&)application;
@end

@implementation KBSettingsViewController {
    brimlet::BrimletApplication* _application;
    kestrow::MainLoop::Token _observation;
    std::string _loginFailure;
    std::vector<brimlet::SettingsSection> _shown;
    NSGridView* _grid;
    NSMutableArray<NSView*>* _controls; // one per row of the screen, in order
}

- (instancetype)initWithApplication:(brimlet::BrimletApplication&)application {
    if ((self = [super initWithNibName:nil bundle:nil])) _application = &application;
    return self;
}

- (brimlet::SettingsScreen)screen {
    brimlet::SettingsContext context;
    context.ownIconWanted = _application->participant().ownIconWanted();
    context.login = loginState();
    context.loginFailure = _loginFailure;
    return brimlet::SettingsPresenter::screen(_application->monitor(), context);
}

- (void)loadView {
    _grid = [NSGridView gridViewWithNumberOfColumns:2 rows:0];
    _grid.rowSpacing = 8;
    _grid.columnSpacing = 12;
    [_grid columnAtIndex:0].xPlacement = NSGridCellPlacementTrailing;
    _controls = [NSMutableArray array];
    NSView* root = [[NSView alloc] init];
    [root addSubview:_grid];
    kestrow::mac::pinEdges(_grid, root, NSEdgeInsetsMake(20, 24, 20, 24));
    self.view = root;
    [self sync];
}

// ---- Drawing

// The rows are made again only when the screen's shape changes (a note comes or goes); otherwise
// each control is set in place, and only when something it shows changed, never under the user's
// pointer on every sample.
- (void)sync {
    if (!self.isViewLoaded) return;
    const brimlet::SettingsScreen screen = [self screen];
    if (screen.sections == _shown) return;
    if (![self sameShape:screen.sections]) [self rebuild:screen.sections];
    NSUInteger index = 0;
    for (const brimlet::SettingsSection& section : screen.sections)
        for (const brimlet::SettingsRow& row : section.rows)
            [self show:row in:_controls[index++]];
    _shown = screen.sections;
    [self fitWindow];
}

- (BOOL)sameShape:(const std::vector<brimlet::SettingsSection>&)sections {
    if (sections.size() != _shown.size()) return NO;
    for (std::size_t i = 0; i < sections.size(); ++i) {
        if (sections[i].rows.size() != _shown[i].rows.size()) return NO;
        for (std::size_t j = 0; j < sections[i].rows.size(); ++j)
            if (sections[i].rows[j].kind != _shown[i].rows[j].kind) return NO;
    }
    return YES;
}

- (void)rebuild:(const std::vector<brimlet::SettingsSection>&)sections {
    while (_grid.numberOfRows > 0)
        [_grid removeRowAtIndex:_grid.numberOfRows - 1];
    [_controls removeAllObjects];
    _shown.clear();
    bool first = true;
    for (const brimlet::SettingsSection& section : sections) {
        NSGridRow* heading = [_grid
            addRowWithViews:@[ brimlet::mac::makeHeading(toNSString(section.heading)), [NSGridCell emptyContentView] ]];
        [heading mergeCellsInRange:NSMakeRange(0, 2)];
        [heading cellAtIndex:0].xPlacement = NSGridCellPlacementLeading;
        heading.topPadding = first ? 0 : 14;
        first = false;
        for (const brimlet::SettingsRow& row : section.rows) {
            NSView* control = [self makeControl:row];
            NSView* caption = row.caption.empty() ? [NSGridCell emptyContentView]
                                                  : [NSTextField labelWithString:toNSString(row.caption)];
            NSGridRow* added = [_grid addRowWithViews:@[ caption, control ]];
            added.rowAlignment = NSGridRowAlignmentFirstBaseline;
            if (row.kind == brimlet::SettingsRow::Kind::note) added.topPadding = -2;
            [_controls addObject:control];
        }
    }
}

- (NSView*)makeControl:(const brimlet::SettingsRow&)row {
    __weak KBSettingsViewController* weakSelf = self;
    const brimlet::SettingsCommand command = row.control.action;
    switch (row.kind) {
    case brimlet::SettingsRow::Kind::checkbox:
        return brimlet::mac::makeCheckbox(toNSString(row.control.title), row.on,
                                          ^(bool on) { [weakSelf perform:command on:on index:-1]; });
    case brimlet::SettingsRow::Kind::choice:
        return brimlet::mac::makePopUp(@[], -1, toNSString(row.control.spokenLabel()), ^(NSInteger index) {
            [weakSelf perform:command on:false index:static_cast<int>(index)];
        });
    case brimlet::SettingsRow::Kind::note:
        return brimlet::mac::makeNote(toNSString(row.text), noteWidth);
    }
    return [NSGridCell emptyContentView];
}

- (void)show:(const brimlet::SettingsRow&)row in:(NSView*)view {
    switch (row.kind) {
    case brimlet::SettingsRow::Kind::checkbox: {
        NSButton* box = static_cast<NSButton*>(view);
        box.title = toNSString(row.control.title);
        box.accessibilityLabel = toNSString(row.control.spokenLabel());
        box.state = row.on ? NSControlStateValueOn : NSControlStateValueOff;
        box.enabled = row.control.enabled;
        break;
    }
    case brimlet::SettingsRow::Kind::choice: {
        NSPopUpButton* popUp = static_cast<NSPopUpButton*>(view);
        NSMutableArray<NSString*>* titles = [NSMutableArray array];
        for (const std::string& choice : row.choices)
            [titles addObject:toNSString(choice)];
        if (![popUp.itemTitles isEqualToArray:titles]) {
            [popUp removeAllItems];
            [popUp addItemsWithTitles:titles];
        }
        if (row.selected >= 0) [popUp selectItemAtIndex:row.selected];
        popUp.enabled = row.control.enabled;
        popUp.accessibilityLabel = toNSString(row.control.spokenLabel());
        break;
    }
    case brimlet::SettingsRow::Kind::note: {
        NSTextField* note = static_cast<NSTextField*>(view);
        note.stringValue = toNSString(row.text);
        note.textColor = toneColor(row.tone);
        break;
    }
    }
}

// ---- Changes

// The monitor store's settings go through the presenter; the suite's own-icon choice and the login
// item are the participant's and the system's, and the switch then shows what they say.
- (void)perform:(brimlet::SettingsCommand)command on:(bool)on index:(int)index {
    if (brimlet::SettingsPresenter::apply(_application->monitor(), command, on, index)) return; // the store tells
    if (command == brimlet::SettingsCommand::ownIcon) {
        const kestrow::Status status = _application->participant().setOwnIconWanted(on);
        if (status.failed()) kestrow::log::error("settings", "own icon setting not saved: " + status.message());
    } else if (command == brimlet::SettingsCommand::launchAtLogin) {
        const kestrow::Status status = brimlet::mac::LoginItem::setEnabled(on);
        _loginFailure = status.failed() ? status.message() : std::string();
    }
    [self sync];
}

// ---- Appearing and following the store

- (void)viewWillAppear {
    [super viewWillAppear];
    __weak KBSettingsViewController* weakSelf = self;
    _observation = _application->monitor().observe([weakSelf] { [weakSelf sync]; });
    _shown.clear(); // the user may have changed the login item in System Settings meanwhile
    [self sync];
}

- (void)viewDidDisappear {
    [super viewDidDisappear];
    _observation.cancel();
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

@end

namespace brimlet::mac {

NSViewController* makeSettingsViewController(BrimletApplication& application) {
    return [[KBSettingsViewController alloc] initWithApplication:application];
}

} // namespace brimlet::mac
