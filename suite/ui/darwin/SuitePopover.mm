// The popover under the shared menu bar item, drawn from SuiteScreens::popover: one line per
// member, and the floating bar's switch.
// Compiled with ARC.
#include "SuiteViews.hpp"

#include <vector>

#include "suite/ui/SuiteParticipant.hpp"

namespace {

// Wide enough for a name and two values without truncation in the common case.
constexpr CGFloat minimumWidth = 280;

} // namespace

@implementation KestrowSuitePopoverController {
    kestrow::suite::SuiteHost* _host;
    std::function<void()> _dismiss;
    NSTextField* _title;
    NSStackView* _rows;
    NSButton* _barSwitch;
    NSTextField* _shortcut;
    KestrowSuiteActionTarget* _switchTarget;
    std::vector<kestrow::suite::SuiteMemberRow> _members; // what the rows show now
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
    _title = mac::makeLabel(@"", [NSFont systemFontOfSize:NSFont.systemFontSize weight:NSFontWeightSemibold],
                            NSColor.labelColor);
    [_title setAccessibilityRole:NSAccessibilityStaticTextRole];

    _rows = [[NSStackView alloc] initWithFrame:NSZeroRect];
    _rows.orientation = NSUserInterfaceLayoutOrientationVertical;
    _rows.alignment = NSLayoutAttributeLeading;
    _rows.spacing = 0;

    NSBox* separator = [[NSBox alloc] initWithFrame:NSZeroRect];
    separator.boxType = NSBoxSeparator;

    SuiteHost* host = _host;
    _switchTarget = [[KestrowSuiteActionTarget alloc] initWithAction:[host](id sender) {
        host->setFloatingVisible(((NSButton*)sender).state == NSControlStateValueOn);
    }];
    _barSwitch = [NSButton checkboxWithTitle:@"" target:_switchTarget action:@selector(perform:)];
    // The shortcut as a menu shows it: right-aligned and quiet.
    _shortcut = mac::makeLabel(@"", [NSFont menuFontOfSize:0], NSColor.tertiaryLabelColor);
    [_shortcut setAccessibilityElement:NO]; // the switch's label already names it
    NSStackView* footer = [NSStackView stackViewWithViews:@[ _barSwitch, mac::makeSpacer(), _shortcut ]];
    footer.orientation = NSUserInterfaceLayoutOrientationHorizontal;

    NSStackView* content = [NSStackView stackViewWithViews:@[ _title, _rows, separator, footer ]];
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
    if (!self.viewLoaded) return; // loadView lists them
    SuitePopoverScreen screen = mac::popoverScreen(*_host);
    _title.stringValue = mac::toNSString(screen.title);
    [_rows setAccessibilityLabel:mac::toNSString(screen.membersLabel)];
    // Records are renewed every few seconds with the same figures: keep the views (and a click in
    // progress) unless a line reads differently.
    if (screen.members != _members || _rows.arrangedSubviews.count == 0) [self showMembers:std::move(screen.members)];

    _barSwitch.title = mac::toNSString(screen.floatingBar.title);
    _barSwitch.state = screen.floatingBar.on ? NSControlStateValueOn : NSControlStateValueOff;
    NSString* label = mac::toNSString(screen.floatingBar.accessibilityLabel);
    [_barSwitch setAccessibilityLabel:label];
    _barSwitch.toolTip = label;
    _shortcut.stringValue = mac::toNSString(screen.shortcut);
    _shortcut.hidden = screen.shortcut.empty();
    self.preferredContentSize = self.view.fittingSize;
}

- (void)showMembers:(std::vector<kestrow::suite::SuiteMemberRow>)members {
    using namespace kestrow::suite;
    for (NSView* old in _rows.arrangedSubviews) {
        [_rows removeArrangedSubview:old];
        [old removeFromSuperview];
    }
    _members = std::move(members);
    for (const SuiteMemberRow& member : _members) {
        std::function<void()> dismiss = _dismiss;
        const SuiteRowLine line = member.line;
        KestrowSuiteRowView* view = [[KestrowSuiteRowView alloc] initWithMember:member
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
