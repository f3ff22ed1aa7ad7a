// The "finished" step: what the run did at a glance, every item left behind with its reason, and
// the report's two exports.
#include "CleanupReportPane.hpp"

#include <vector>

#include "CleanupViewSupport.hpp"
#include "app/CleanupSummary.hpp"
#include "base/Files.hpp"
#include "base/Log.hpp"
#include "core/common/ByteFormat.hpp"

using namespace brimlet::mac::cleanup;

namespace {

constexpr std::string_view logCategory = "cleanup";

// The run's entries as readable text, what was removed and how, then what was left and why,
// styled line by line through the text view (fonts and colours by range).
void showEntries(NSTextView* view, const brimlet::CleanupReport& report) {
    NSMutableString* all = [NSMutableString string];
    struct Span {
        NSRange range;
        NSFont* font;
        NSColor* colour;
    };
    std::vector<Span> spans;
    auto append = [&](NSString* value, NSFont* font, NSColor* colour) {
        spans.push_back({NSMakeRange(all.length, value.length), font, colour});
        [all appendString:value];
    };
    NSFont* body = systemFont(bodySize());
    NSFont* heading = systemFont(bodySize(), NSFontWeightSemibold);
    NSFont* small = systemFont(smallSize());
    auto section = [&](NSString* title, std::size_t count) {
        if (all.length != 0) append(@"\n", body, NSColor.labelColor);
        append([NSString stringWithFormat:@"%@ (%zu)\n", title, count], heading, NSColor.labelColor);
        if (count == 0) append(@"Nothing.\n", body, NSColor.secondaryLabelColor);
    };
    section(@"Removed", report.deleted.size());
    for (const auto& entry : report.deleted) {
        std::string line = entry.title + " — " + brimlet::ByteFormat::string(entry.bytes) + " — " +
                           std::string(entry.mode.title());
        if (entry.downgraded) line += " (personal data is never deleted permanently)";
        append([text(line) stringByAppendingString:@"\n"], body, NSColor.labelColor);
        append([text(entry.path) stringByAppendingString:@"\n"], small, NSColor.secondaryLabelColor);
    }
    section(@"Skipped", report.skipped.size());
    for (const auto& entry : report.skipped) {
        NSColor* colour = brimlet::CleanupSummary::isError(entry) ? NSColor.systemRedColor : NSColor.labelColor;
        append([text(entry.title + " — " + entry.reason) stringByAppendingString:@"\n"], body, colour);
        append([text(entry.path) stringByAppendingString:@"\n"], small, NSColor.secondaryLabelColor);
    }
    view.string = all;
    for (const Span& span : spans) {
        [view setFont:span.font range:span.range];
        [view setTextColor:span.colour range:span.range];
    }
}

}  // namespace

@implementation KBCleanupReportPane {
    brimlet::CleanupStore* _store;
    void (^_startOver)(void);
    NSStackView* _view;
    NSImageView* _icon;
    NSTextField* _headline;
    NSStackView* _lines;
    NSTextView* _entries;
}

- (instancetype)initWithStore:(brimlet::CleanupStore*)store startOver:(void (^)(void))startOver {
    if (!(self = [super init])) return nil;
    _store = store;
    _startOver = startOver;

    _icon = [NSImageView imageViewWithImage:symbol(@"checkmark.circle.fill", nil)];
    _icon.symbolConfiguration = [NSImageSymbolConfiguration configurationWithPointSize:28 weight:NSFontWeightRegular];
    _headline = label(@"", systemFont(20, NSFontWeightSemibold));
    [_headline setAccessibilityRole:NSAccessibilityStaticTextRole];
    NSStackView* top = stack(@[ _icon, _headline ], NSUserInterfaceLayoutOrientationHorizontal, 10);
    _lines = stack(@[], NSUserInterfaceLayoutOrientationVertical, 4);

    _entries = [[NSTextView alloc] initWithFrame:NSMakeRect(0, 0, 600, 200)];
    _entries.editable = NO;
    _entries.selectable = YES;
    _entries.drawsBackground = NO;
    _entries.textContainerInset = NSMakeSize(4, 6);
    _entries.verticallyResizable = YES;
    _entries.horizontallyResizable = NO;
    _entries.autoresizingMask = NSViewWidthSizable;
    _entries.textContainer.widthTracksTextView = YES;
    [_entries setAccessibilityLabel:@"Items removed and skipped"];
    NSScrollView* scroll = [[NSScrollView alloc] initWithFrame:NSZeroRect];
    scroll.documentView = _entries;
    scroll.hasVerticalScroller = YES;
    scroll.autohidesScrollers = YES;
    scroll.borderType = NSBezelBorder;
    [scroll setContentHuggingPriority:NSLayoutPriorityDefaultLow forOrientation:NSLayoutConstraintOrientationVertical];

    NSButton* markdown = button(@"Export Markdown…", @"doc.text", self, @selector(exportMarkdown:));
    NSButton* json = button(@"Export JSON…", @"curlybraces", self, @selector(exportJSON:));
    NSButton* again = button(@"Start Over", @"arrow.counterclockwise", self, @selector(startOver:));
    again.keyEquivalent = @"\r";
    NSView* spacer = [[NSView alloc] initWithFrame:NSZeroRect];
    [spacer setContentHuggingPriority:1 forOrientation:NSLayoutConstraintOrientationHorizontal];
    NSStackView* buttons = stack(@[ markdown, json, spacer, again ], NSUserInterfaceLayoutOrientationHorizontal, 8);

    _view = stack(@[ top, _lines, scroll, buttons ], NSUserInterfaceLayoutOrientationVertical, 12);
    fillWidth(scroll, _view);
    fillWidth(buttons, _view);
    return self;
}

- (NSView*)view {
    return _view;
}

- (void)refresh {
    const auto& report = _store->lastReport();
    if (!report) return;
    const brimlet::CleanupSummary::Text summary = brimlet::CleanupSummary::describe(*report);
    _headline.stringValue = text(summary.headline);
    const bool troubled = report->refusal || report->cancelled;
    _icon.image = symbol(troubled ? @"exclamationmark.triangle.fill" : @"checkmark.circle.fill", nil);
    _icon.contentTintColor = troubled ? NSColor.systemOrangeColor : NSColor.systemGreenColor;
    for (NSView* old in _lines.arrangedSubviews) [old removeFromSuperview];
    for (const std::string& line : summary.lines) [_lines addArrangedSubview:paragraph(text(line), NSColor.labelColor)];
    showEntries(_entries, *report);
}

- (void)startOver:(id)sender {
    (void)sender;
    if (_startOver) _startOver();
}

- (void)exportMarkdown:(id)sender {
    (void)sender;
    [self exportText:_store->reportMarkdown() extension:@"md"];
}

- (void)exportJSON:(id)sender {
    (void)sender;
    [self exportText:_store->reportJSON() extension:@"json"];
}

- (void)exportText:(const std::optional<std::string>&)content extension:(NSString*)extension {
    const auto& report = _store->lastReport();
    NSWindow* window = _view.window;
    if (!content || !report || !window) {
        NSBeep();
        return;
    }
    NSSavePanel* panel = [NSSavePanel savePanel];
    panel.nameFieldStringValue =
        [text(brimlet::CleanupStore::reportBaseName(*report)) stringByAppendingPathExtension:extension];
    panel.canCreateDirectories = YES;
    panel.extensionHidden = NO;
    const std::string bytes = *content;
    [panel beginSheetModalForWindow:window
                  completionHandler:^(NSModalResponse response) {
                    if (response != NSModalResponseOK || !panel.URL.fileURL) return;
                    const kestrow::Status written = kestrow::writeAtomically(utf8(panel.URL.path), bytes, 0644);
                    if (written.ok()) return;
                    kestrow::log::error(logCategory, "cannot export the cleanup report: " + written.message());
                    NSAlert* alert = [[NSAlert alloc] init];
                    alert.alertStyle = NSAlertStyleWarning;
                    alert.messageText = @"The report could not be saved.";
                    alert.informativeText = text(written.message());
                    [alert beginSheetModalForWindow:window completionHandler:nil];
                  }];
}

@end
