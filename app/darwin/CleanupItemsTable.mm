// The table of the "ready" step: one row per measured cache and scanned personal item, in the order
// the store presents them (and cleans them), drawn from the presenter's rows.
#include "CleanupViewSupport.hpp"
#include "base/darwin/ViewLayout.hpp"

#include <vector>

using namespace brimlet::mac::cleanup;

namespace {

// Column identifiers: the checkbox, then one per heading the presenter gives.
NSUserInterfaceItemIdentifier const chooseColumn = @"choose";
NSUserInterfaceItemIdentifier const nameColumn = @"name";
NSUserInterfaceItemIdentifier const categoryColumn = @"category";
NSUserInterfaceItemIdentifier const sizeColumn = @"size";
NSUserInterfaceItemIdentifier const noteColumn = @"note";

bool sameItems(const std::vector<brimlet::CleanupItemRow>& a, const std::vector<brimlet::CleanupItemRow>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i].id != b[i].id || a[i].size != b[i].size || a[i].note != b[i].note) return false;
    return true;
}

} // namespace

// Space toggles the checkbox of the focused row, as in Finder's and Mail's lists.
@interface KBCleanupTableView : NSTableView
@property(nonatomic, copy) void (^toggleRow)(NSInteger row);
@end

@implementation KBCleanupTableView
- (void)keyDown:(NSEvent*)event {
    if ([event.charactersIgnoringModifiers isEqualToString:@" "] && self.selectedRow >= 0 && self.toggleRow) {
        self.toggleRow(self.selectedRow);
        return;
    }
    [super keyDown:event];
}
@end

@implementation KBCleanupItemsTable {
    std::function<void(const brimlet::CleanupControl&)> _onToggle;
    std::vector<brimlet::CleanupItemRow> _rows;
    KBCleanupTableView* _table;
    NSScrollView* _scroll;
}

- (instancetype)initWithLabel:(const std::string&)label
                      columns:(const std::vector<std::string>&)columns
                     onToggle:(std::function<void(const brimlet::CleanupControl&)>)onToggle {
    if (!(self = [super init])) return nil;
    _onToggle = std::move(onToggle);

    _table = [[KBCleanupTableView alloc] initWithFrame:NSZeroRect];
    _table.style = NSTableViewStyleInset;
    _table.usesAlternatingRowBackgroundColors = YES;
    _table.usesAutomaticRowHeights = YES;
    _table.allowsColumnReordering = NO;
    _table.columnAutoresizingStyle = NSTableViewUniformColumnAutoresizingStyle;
    [_table setAccessibilityLabel:toNSString(label)];
    struct Column {
        NSUserInterfaceItemIdentifier identifier;
        CGFloat width;
    };
    const Column layout[] = {
        {chooseColumn, 24}, {nameColumn, 250}, {categoryColumn, 120}, {sizeColumn, 90}, {noteColumn, 200}};
    for (std::size_t i = 0; i < std::size(layout); ++i) {
        NSTableColumn* made = [[NSTableColumn alloc] initWithIdentifier:layout[i].identifier];
        // The checkbox column has no heading; the others take the presenter's, in order.
        made.title = i == 0 || i > columns.size() ? [NSString string] : toNSString(columns[i - 1]);
        made.width = layout[i].width;
        if (i == 0) {
            made.minWidth = made.maxWidth = layout[i].width;
            made.resizingMask = NSTableColumnNoResizing;
        }
        [_table addTableColumn:made];
    }
    _table.dataSource = self;
    _table.delegate = self;
    __weak KBCleanupItemsTable* weakSelf = self;
    _table.toggleRow = ^(NSInteger row) { [weakSelf toggleRow:row]; };

    _scroll = [[NSScrollView alloc] initWithFrame:NSZeroRect];
    _scroll.documentView = _table;
    _scroll.hasVerticalScroller = YES;
    _scroll.autohidesScrollers = YES;
    _scroll.borderType = NSNoBorder;
    return self;
}

- (NSScrollView*)view {
    return _scroll;
}

- (void)showRows:(const std::vector<brimlet::CleanupItemRow>&)rows {
    const bool sameList = sameItems(rows, _rows);
    _rows = rows;
    if (!sameList) {
        [_table reloadData];
        return;
    }
    if (_rows.empty()) return;
    [_table reloadDataForRowIndexes:[NSIndexSet indexSetWithIndexesInRange:NSMakeRange(0, _rows.size())]
                      columnIndexes:[NSIndexSet indexSetWithIndex:0]];
}

- (void)toggleRow:(NSInteger)row {
    if (row < 0 || static_cast<std::size_t>(row) >= _rows.size()) return;
    const brimlet::CleanupControl& include = _rows[static_cast<std::size_t>(row)].include;
    if (!include.enabled) {
        NSBeep();
        return;
    }
    _onToggle(include);
}

- (void)checkboxClicked:(NSButton*)sender {
    const NSInteger row = [_table rowForView:sender];
    // The store decides what the box shows; until it has, it keeps the state it had.
    sender.state = sender.state == NSControlStateValueOn ? NSControlStateValueOff : NSControlStateValueOn;
    [self toggleRow:row];
}

- (NSInteger)numberOfRowsInTableView:(NSTableView*)tableView {
    (void)tableView;
    return static_cast<NSInteger>(_rows.size());
}

- (NSView*)tableView:(NSTableView*)tableView viewForTableColumn:(NSTableColumn*)column row:(NSInteger)row {
    const brimlet::CleanupItemRow& item = _rows[static_cast<std::size_t>(row)];
    if (column.identifier == chooseColumn) {
        NSButton* box = [tableView makeViewWithIdentifier:chooseColumn owner:self];
        if (!box) {
            box = [NSButton checkboxWithTitle:[NSString string] target:self action:@selector(checkboxClicked:)];
            box.identifier = chooseColumn;
        }
        box.state = item.chosen ? NSControlStateValueOn : NSControlStateValueOff;
        box.enabled = item.include.enabled;
        [box setAccessibilityLabel:toNSString(item.include.spokenLabel())];
        box.toolTip = item.include.help.empty() ? nil : toNSString(item.include.help);
        return box;
    }
    if (column.identifier == nameColumn) {
        NSTableCellView* cell = [tableView makeViewWithIdentifier:nameColumn owner:self];
        if (!cell) {
            cell = [[NSTableCellView alloc] initWithFrame:NSZeroRect];
            cell.identifier = nameColumn;
            NSTextField* name = label([NSString string], systemFont(bodySize(), NSFontWeightMedium));
            NSTextField* detail = label([NSString string], systemFont(smallSize()), NSColor.secondaryLabelColor);
            detail.lineBreakMode = NSLineBreakByTruncatingTail;
            NSStackView* lines = stack(@[ name, detail ], NSUserInterfaceLayoutOrientationVertical, 1);
            [cell addSubview:lines];
            kestrow::mac::pinEdges(lines, cell, NSEdgeInsetsMake(4, 2, 4, 2));
            cell.textField = name;
        }
        NSStackView* lines = cell.subviews.firstObject;
        auto* detail = static_cast<NSTextField*>(lines.arrangedSubviews.lastObject);
        cell.textField.stringValue = toNSString(item.title);
        detail.stringValue = toNSString(item.detail);
        // The full path where the user can read it: what exactly will be touched.
        cell.toolTip = toNSString(item.path);
        [cell setAccessibilityLabel:toNSString(item.accessibilityLabel)];
        return cell;
    }
    NSTextField* field = [tableView makeViewWithIdentifier:column.identifier owner:self];
    if (!field) {
        field = label([NSString string]);
        field.translatesAutoresizingMaskIntoConstraints = YES; // the table places its cell views by frame
        field.identifier = column.identifier;
    }
    if (column.identifier == categoryColumn) {
        field.stringValue = toNSString(item.category);
        field.textColor = NSColor.secondaryLabelColor;
    } else if (column.identifier == sizeColumn) {
        field.stringValue = toNSString(item.size);
        field.font = digitsFont(bodySize(), NSFontWeightRegular);
        field.alignment = NSTextAlignmentRight;
    } else {
        field.stringValue = toNSString(item.note);
        field.lineBreakMode = NSLineBreakByWordWrapping;
        field.maximumNumberOfLines = 2;
        field.textColor = toneColor(item.noteTone);
    }
    return field;
}

@end
