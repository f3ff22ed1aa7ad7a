// The "finished" step: what the run did at a glance, every entry with its path, and the report's
// two exports. Every word comes from the presenter.
#include "CleanupReportPane.hpp"

#include <vector>

#include "CleanupViewSupport.hpp"
#include "base/Files.hpp"
#include "base/Log.hpp"

using namespace brimlet::mac::cleanup;

namespace {

constexpr std::string_view logCategory = "cleanup";

// The sections as readable text, styled line by line through the text view (fonts and colors by range).
void showEntries(NSTextView* view, const std::vector<brimlet::CleanupScreen::Section>& sections) {
    NSMutableString* all = [NSMutableString string];
    struct Span {
        NSRange range;
        NSFont* font;
        NSColor* color;
    };
    std::vector<Span> spans;
    auto line = [&](const std::string& value, NSFont* font, NSColor* color) {
        NSString* piece = toNSString(value + "\n");
        spans.push_back({NSMakeRange(all.length, piece.length), font, color});
        [all appendString:piece];
    };
    NSFont* body = systemFont(bodySize());
    NSFont* heading = systemFont(bodySize(), NSFontWeightSemibold);
    NSFont* small = systemFont(smallSize());
    for (const brimlet::CleanupScreen::Section& section : sections) {
        if (all.length != 0) line("", body, NSColor.labelColor);
        line(section.title, heading, NSColor.labelColor);
        if (section.entries.empty()) line(section.empty, body, NSColor.secondaryLabelColor);
        for (const brimlet::CleanupScreen::Entry& entry : section.entries) {
            line(entry.text, body, toneColor(entry.tone));
            line(entry.path, small, NSColor.secondaryLabelColor);
        }
    }
    view.string = all;
    for (const Span& span : spans) {
        [view setFont:span.font range:span.range];
        [view setTextColor:span.color range:span.range];
    }
}

} // namespace

@implementation KBCleanupReportPane {
    brimlet::CleanupPresenter* _presenter;
    std::function<void(const brimlet::CleanupControl&)> _perform;
    brimlet::CleanupScreen::Finished _shown;
    NSStackView* _view;
    NSImageView* _icon;
    NSTextField* _headline;
    NSStackView* _lines;
    NSTextView* _entries;
    NSButton* _markdown;
    NSButton* _json;
    NSButton* _again;
}

- (instancetype)initWithPresenter:(brimlet::CleanupPresenter*)presenter
                          perform:(std::function<void(const brimlet::CleanupControl&)>)perform {
    if (!(self = [super init])) return nil;
    _presenter = presenter;
    _perform = std::move(perform);

    _icon = [[NSImageView alloc] initWithFrame:NSZeroRect];
    _icon.symbolConfiguration = [NSImageSymbolConfiguration configurationWithPointSize:28 weight:NSFontWeightRegular];
    _headline = label([NSString string], systemFont(20, NSFontWeightSemibold));
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
    NSScrollView* scroll = [[NSScrollView alloc] initWithFrame:NSZeroRect];
    scroll.documentView = _entries;
    scroll.hasVerticalScroller = YES;
    scroll.autohidesScrollers = YES;
    scroll.borderType = NSBezelBorder;
    [scroll setContentHuggingPriority:NSLayoutPriorityDefaultLow forOrientation:NSLayoutConstraintOrientationVertical];

    _markdown = [NSButton buttonWithTitle:[NSString string] target:self action:@selector(export:)];
    _json = [NSButton buttonWithTitle:[NSString string] target:self action:@selector(export:)];
    _again = [NSButton buttonWithTitle:[NSString string] target:self action:@selector(startOver:)];
    NSView* spacer = [[NSView alloc] initWithFrame:NSZeroRect];
    [spacer setContentHuggingPriority:1 forOrientation:NSLayoutConstraintOrientationHorizontal];
    NSStackView* buttons = stack(@[ _markdown, _json, spacer, _again ], NSUserInterfaceLayoutOrientationHorizontal, 8);

    _view = stack(@[ top, _lines, scroll, buttons ], NSUserInterfaceLayoutOrientationVertical, 12);
    fillWidth(scroll, _view);
    fillWidth(buttons, _view);
    return self;
}

- (NSView*)view {
    return _view;
}

- (void)show:(const brimlet::CleanupScreen::Finished&)finished {
    if (finished == _shown) return;
    _shown = finished;
    _headline.stringValue = toNSString(finished.headline);
    _icon.image = symbol(toNSString(finished.symbol), nil);
    _icon.contentTintColor = toneColor(finished.tone);
    for (NSView* old in _lines.arrangedSubviews)
        [old removeFromSuperview];
    for (const std::string& line : finished.lines)
        [_lines addArrangedSubview:paragraph(toNSString(line), NSColor.labelColor)];
    [_entries setAccessibilityLabel:toNSString(finished.entriesLabel)];
    showEntries(_entries, finished.sections);
    for (auto [made, control] : {std::pair{_markdown, &finished.exportMarkdown}, std::pair{_json, &finished.exportJSON},
                                 std::pair{_again, &finished.startOver}}) {
        apply(made, *control);
        made.image = symbol(toNSString(control->symbol), nil);
        made.imagePosition = NSImageLeading;
    }
}

- (void)startOver:(NSButton*)sender {
    if (_perform) _perform(_shown.startOver);
    (void)sender;
}

- (void)export:(NSButton*)sender {
    const auto format = static_cast<brimlet::CleanupCommand>(sender.tag);
    const std::optional<brimlet::CleanupExport> file = _presenter->exportFile(format);
    NSWindow* window = _view.window;
    if (!file || !window) {
        NSBeep();
        return;
    }
    NSSavePanel* panel = [NSSavePanel savePanel];
    panel.nameFieldStringValue = toNSString(file->suggestedName);
    panel.canCreateDirectories = YES;
    panel.extensionHidden = NO;
    const std::string bytes = file->contents;
    [panel beginSheetModalForWindow:window
                  completionHandler:^(NSModalResponse response) {
                      if (response != NSModalResponseOK || !panel.URL.fileURL) return;
                      const kestrow::Status written = kestrow::writeAtomically(utf8(panel.URL.path), bytes, 0644);
                      if (written.ok()) return;
                      kestrow::log::error(logCategory, "cannot export the cleanup report: " + written.message());
                      askDialog(brimlet::CleanupPresenter::exportFailed(written), window,
                                [](const brimlet::CleanupControl&) {});
                  }];
}

@end
