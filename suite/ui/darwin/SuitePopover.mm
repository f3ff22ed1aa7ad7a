// The popover under the shared menu bar item: one line per member, and the floating bar's switch.
// Compiled with ARC.
#include "SuiteViews.hpp"

#include <vector>

#include "suite/ui/SuiteParticipant.hpp"

namespace {

// Wide enough for a name and two values without truncation in the common case.
constexpr CGFloat minimumWidth = 280;

}  // namespace

@implementation KestrowSuitePopoverController {
    kestrow::suite::SuiteHost* _host;
    std::function<void()> _dismiss;
    NSStackView* _rows;
    NSButton* _barSwitch;
    NSTextField* _shortcut;
    KestrowSuiteActionTarget* _switchTarget;
    std::vector<kestrow::suite::SuiteRowLine> _lines;  // what the rows show now
}

- (instancetype)initWithHost:(kestrow::suite::SuiteHost*)host dismiss:(std::function<void()>)dismiss {
    if ((self = [super initWithNibName:nil bundle:nil])) {
        _host = host;
        _dismiss = std::move(dismiss);
    }
    return self;
}

- (void)loadView {
    using namespace kestrow::suite;
    NSTextField* title = mac::makeLabel(mac::toNSString(SuiteFormat::itemLabel),
                                        [NSFont systemFontOfSize:NSFont.systemFontSize weight:NSFontWeightSemibold],
                                        NSColor.labelColor);
    [title setAccessibilityRole:NSAccessibilityStaticTextRole];

    _rows = [[NSStackView alloc] initWithFrame:NSZeroRect];
    _rows.orientation = NSUserInterfaceLayoutOrientationVertical;
    _rows.alignment = NSLayoutAttributeLeading;
    _rows.spacing = 0;
    [_rows setAccessibilityLabel:@"Suite members"];

    NSBox* separator = [[NSBox alloc] initWithFrame:NSZeroRect];
    separator.boxType = NSBoxSeparator;

    SuiteHost* host = _host;
    _switchTarget = [[KestrowSuiteActionTarget alloc] initWithAction:[host](id sender) {
        host->setFloatingVisible(((NSButton*)sender).state == NSControlStateValueOn);
    }];
    _barSwitch = [NSButton checkboxWithTitle:mac::toNSString(SuiteFormat::showBarTitle)
                                      target:_switchTarget
                                      action:@selector(perform:)];
    // The shortcut as a menu shows it: right-aligned and quiet.
    _shortcut = mac::makeLabel(mac::toNSString(GlobalHotKey::displayName), [NSFont menuFontOfSize:0],
                               NSColor.tertiaryLabelColor);
    [_shortcut setAccessibilityElement:NO];  // the switch's label already names it
    NSStackView* footer = [NSStackView stackViewWithViews:@[ _barSwitch, mac::makeSpacer(), _shortcut ]];
    footer.orientation = NSUserInterfaceLayoutOrientationHorizontal;

    NSStackView* content = [NSStackView stackViewWithViews:@[ title, _rows, separator, footer ]];
    content.orientation = NSUserInterfaceLayoutOrientationVertical;
    content.alignment = NSLayoutAttributeLeading;
    content.spacing = 8;
    content.edgeInsets = NSEdgeInsetsMake(12, 12, 12, 12);
    [NSLayoutConstraint activateConstraints:@[
        [content.widthAnchor constraintGreaterThanOrEqualToConstant:minimumWidth],
        [_rows.widthAnchor constraintEqualToAnchor:content.widthAnchor constant:-24],
        [separator.widthAnchor constraintEqualToAnchor:_rows.widthAnchor],
        [footer.widthAnchor constraintEqualToAnchor:_rows.widthAnchor],
    ]];
    self.view = content;
    [self reload];
}

- (void)reload {
    using namespace kestrow::suite;
    if (!self.viewLoaded) return;  // loadView lists them
    std::vector<SuiteRowLine> lines = mac::currentLines(*_host);
    // Records are renewed every few seconds with the same figures: keep the views (and a click in
    // progress) unless a line reads differently.
    if (lines != _lines || _rows.arrangedSubviews.count == 0) [self showLines:std::move(lines)];

    const bool registered = _host->hotKeyRegistered();
    _barSwitch.state = _host->floatingVisible() ? NSControlStateValueOn : NSControlStateValueOff;
    NSString* label = mac::toNSString(SuiteFormat::showBarLabel(registered));
    [_barSwitch setAccessibilityLabel:label];
    _barSwitch.toolTip = label;
    _shortcut.hidden = !registered;
    self.preferredContentSize = self.view.fittingSize;
}

- (void)showLines:(std::vector<kestrow::suite::SuiteRowLine>)lines {
    using namespace kestrow::suite;
    for (NSView* old in _rows.arrangedSubviews) {
        [_rows removeArrangedSubview:old];
        [old removeFromSuperview];
    }
    _lines = std::move(lines);
    for (const SuiteRowLine& line : _lines) {
        std::function<void()> dismiss = _dismiss;
        KestrowSuiteRowView* view = [[KestrowSuiteRowView alloc] initWithLine:line
                                                                      compact:NO
                                                                       action:[line, dismiss] {
                                                                           mac::openMember(line);
                                                                           if (dismiss) dismiss();
                                                                       }];
        [_rows addArrangedSubview:view];
        [view.widthAnchor constraintEqualToAnchor:_rows.widthAnchor].active = YES;
    }
}

@end
