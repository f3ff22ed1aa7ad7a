// The table of the "ready" step: one row per measured cache and scanned personal item, in the order
// the store presents them (and cleans them).
#include "base/darwin/ViewLayout.hpp"
#include "CleanupViewSupport.hpp"

#include <vector>

#include "core/common/ByteFormat.hpp"

using namespace brimlet::mac::cleanup;

namespace {

NSUserInterfaceItemIdentifier const chooseColumn = @"choose";
NSUserInterfaceItemIdentifier const nameColumn = @"name";
NSUserInterfaceItemIdentifier const categoryColumn = @"category";
NSUserInterfaceItemIdentifier const sizeColumn = @"size";
NSUserInterfaceItemIdentifier const noteColumn = @"note";

NSString* categoryText(const brimlet::CleanupItem& item) {
    return item.kind == brimlet::CleanupKind::personal ? @"Personal — needs your approval" : @"Rebuilds itself";
}

NSString* sizeText(const brimlet::CleanupItem& item) {
    if (item.size) return text(brimlet::ByteFormat::string(*item.size));
    // Only the simulators' tool knows what it will free; anything else unmeasured was cut short.
    return @"—";
}

// Why the row is safe to clean, or why it cannot be chosen: the held-back reason comes first.
NSString* noteText(const brimlet::CleanupItem& item) {
    if (item.blockedReason) return text(*item.blockedReason);
    if (item.note) return text(*item.note);
    return item.kind == brimlet::CleanupKind::personal ? @"Moved to the Trash, never deleted permanently"
                                                       : @"Its tool downloads or rebuilds it when needed";
}

}  // namespace

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
    brimlet::CleanupStore* _store;
    std::function<void(const std::string&, bool)> _onToggle;
    std::vector<brimlet::CleanupItem> _items;
    KBCleanupTableView* _table;
    NSScrollView* _scroll;
}

- (instancetype)initWithStore:(brimlet::CleanupStore*)store
                     onToggle:(std::function<void(const std::string&, bool)>)onToggle {
    if (!(self = [super init])) return nil;
    _store = store;
    _onToggle = std::move(onToggle);

    _table = [[KBCleanupTableView alloc] initWithFrame:NSZeroRect];
    _table.style = NSTableViewStyleInset;
    _table.usesAlternatingRowBackgroundColors = YES;
    _table.usesAutomaticRowHeights = YES;
    _table.allowsColumnReordering = NO;
    _table.columnAutoresizingStyle = NSTableViewUniformColumnAutoresizingStyle;
    [_table setAccessibilityLabel:@"Items to clean"];
    struct Column {
        NSUserInterfaceItemIdentifier identifier;
        NSString* title;
        CGFloat width;
    };
    for (const Column& column : {Column{chooseColumn, @"", 24}, Column{nameColumn, @"Item", 250},
                                 Column{categoryColumn, @"Category", 120}, Column{sizeColumn, @"Size", 90},
                                 Column{noteColumn, @"Note", 200}}) {
        NSTableColumn* made = [[NSTableColumn alloc] initWithIdentifier:column.identifier];
        made.title = column.title;
        made.width = column.width;
        if (column.identifier == chooseColumn) {
            made.minWidth = made.maxWidth = column.width;
            made.resizingMask = NSTableColumnNoResizing;
        }
        [_table addTableColumn:made];
    }
    _table.dataSource = self;
    _table.delegate = self;
    __weak KBCleanupItemsTable* weakSelf = self;
    _table.toggleRow = ^(NSInteger row) {
        [weakSelf toggleRow:row];
    };

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

- (void)reloadItems {
    _items.clear();
    if (const auto& measured = _store->measured()) _items = measured->regenerable;
    const auto& personal = _store->personalItems();
    _items.insert(_items.end(), personal.begin(), personal.end());
    [_table reloadData];
}

- (void)refreshChoices {
    if (_items.empty()) return;
    [_table reloadDataForRowIndexes:[NSIndexSet indexSetWithIndexesInRange:NSMakeRange(0, _items.size())]
                      columnIndexes:[NSIndexSet indexSetWithIndex:0]];
}

- (void)toggleRow:(NSInteger)row {
    if (row < 0 || static_cast<std::size_t>(row) >= _items.size()) return;
    const brimlet::CleanupItem& item = _items[static_cast<std::size_t>(row)];
    if (!item.isSelectable()) {
        NSBeep();
        return;
    }
    _onToggle(item.id, !_store->selection().count(item.id));
}

- (void)checkboxClicked:(NSButton*)sender {
    const NSInteger row = [_table rowForView:sender];
    // The store decides what the box shows; until it has, it keeps the state it had.
    sender.state = sender.state == NSControlStateValueOn ? NSControlStateValueOff : NSControlStateValueOn;
    [self toggleRow:row];
}

- (NSInteger)numberOfRowsInTableView:(NSTableView*)tableView {
    (void)tableView;
    return static_cast<NSInteger>(_items.size());
}

- (NSView*)tableView:(NSTableView*)tableView viewForTableColumn:(NSTableColumn*)column row:(NSInteger)row {
    const brimlet::CleanupItem& item = _items[static_cast<std::size_t>(row)];
    NSString* title = text(item.title);
    if (column.identifier == chooseColumn) {
        NSButton* box = [tableView makeViewWithIdentifier:chooseColumn owner:self];
        if (!box) {
            box = [NSButton checkboxWithTitle:@"" target:self action:@selector(checkboxClicked:)];
            box.identifier = chooseColumn;
        }
        box.state = _store->selection().count(item.id) ? NSControlStateValueOn : NSControlStateValueOff;
        box.enabled = item.isSelectable();
        [box setAccessibilityLabel:[NSString stringWithFormat:@"Include %@", title]];
        return box;
    }
    if (column.identifier == nameColumn) {
        NSTableCellView* cell = [tableView makeViewWithIdentifier:nameColumn owner:self];
        if (!cell) {
            cell = [[NSTableCellView alloc] initWithFrame:NSZeroRect];
            cell.identifier = nameColumn;
            NSTextField* name = label(@"", systemFont(bodySize(), NSFontWeightMedium));
            NSTextField* detail = label(@"", systemFont(smallSize()),
                                        NSColor.secondaryLabelColor);
            detail.lineBreakMode = NSLineBreakByTruncatingTail;
            NSStackView* lines = stack(@[ name, detail ], NSUserInterfaceLayoutOrientationVertical, 1);
            [cell addSubview:lines];
            kestrow::mac::pinEdges(lines, cell, NSEdgeInsetsMake(4, 2, 4, 2));
            cell.textField = name;
        }
        NSStackView* lines = cell.subviews.firstObject;
        auto* detail = static_cast<NSTextField*>(lines.arrangedSubviews.lastObject);
        cell.textField.stringValue = title;
        detail.stringValue = text(item.detail);
        // The full path where the user can read it: what exactly will be touched.
        cell.toolTip = text(item.url);
        [cell setAccessibilityLabel:[NSString stringWithFormat:@"%@, %@", title, text(item.detail)]];
        return cell;
    }
    NSTextField* field = [tableView makeViewWithIdentifier:column.identifier owner:self];
    if (!field) {
        field = label(@"");
        field.identifier = column.identifier;
    }
    if (column.identifier == categoryColumn) {
        field.stringValue = categoryText(item);
        field.textColor = NSColor.secondaryLabelColor;
    } else if (column.identifier == sizeColumn) {
        field.stringValue = sizeText(item);
        field.font = digitsFont(bodySize(), NSFontWeightRegular);
        field.alignment = NSTextAlignmentRight;
    } else {
        field.stringValue = noteText(item);
        field.lineBreakMode = NSLineBreakByWordWrapping;
        field.maximumNumberOfLines = 2;
        field.textColor = item.blockedReason ? NSColor.systemOrangeColor : NSColor.secondaryLabelColor;
    }
    return field;
}

@end
