#include "WindowKit.hpp"

#import <objc/runtime.h>

// The target of a control whose action is a block. Controls hold their target weakly, so the
// control keeps this object alive through an associated reference.
@interface KBBlockTarget : NSObject
@property(nonatomic, copy) void (^block)(id sender);
- (void)fire:(id)sender;
@end

@implementation KBBlockTarget
- (void)fire:(id)sender {
    if (self.block) self.block(sender);
}
@end

namespace brimlet::mac {

namespace {
const char blockTargetKey = 0;
}

NSTextField* makeNote(NSString* text, CGFloat width) {
    NSTextField* note = [NSTextField wrappingLabelWithString:text];
    note.font = [NSFont preferredFontForTextStyle:NSFontTextStyleFootnote options:@{}];
    note.textColor = NSColor.secondaryLabelColor;
    note.preferredMaxLayoutWidth = width;
    note.selectable = NO;
    return note;
}

NSTextField* makeHeading(NSString* text) { return makeLabel(text, NSFontTextStyleHeadline, NSColor.labelColor); }

NSColor* ratingColor(std::optional<Rating> rating) {
    if (!rating) return NSColor.secondaryLabelColor;
    switch (rating->value) {
    case Rating::great:
        return NSColor.systemGreenColor;
    case Rating::good:
        return NSColor.systemTealColor;
    case Rating::fair:
        return NSColor.systemOrangeColor;
    case Rating::poor:
        return NSColor.systemRedColor;
    }
    return NSColor.secondaryLabelColor;
}

void onAction(NSControl* control, void (^block)(id sender)) {
    KBBlockTarget* target = [[KBBlockTarget alloc] init];
    target.block = block;
    objc_setAssociatedObject(control, &blockTargetKey, target, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
    control.target = target;
    control.action = @selector(fire:);
}

NSPopUpButton* makePopUp(NSArray<NSString*>* titles, NSInteger selected, NSString* accessibilityLabel,
                         void (^changed)(NSInteger index)) {
    NSPopUpButton* popUp = [[NSPopUpButton alloc] initWithFrame:NSZeroRect pullsDown:NO];
    [popUp addItemsWithTitles:titles];
    if (selected >= 0 && selected < static_cast<NSInteger>(titles.count)) [popUp selectItemAtIndex:selected];
    popUp.accessibilityLabel = accessibilityLabel;
    onAction(popUp, ^(id sender) { changed([static_cast<NSPopUpButton*>(sender) indexOfSelectedItem]); });
    return popUp;
}

NSButton* makeCheckbox(NSString* title, bool on, void (^changed)(bool on)) {
    NSButton* box = [NSButton checkboxWithTitle:title target:nil action:nil];
    box.state = on ? NSControlStateValueOn : NSControlStateValueOff;
    box.accessibilityLabel = title;
    onAction(box, ^(id sender) { changed([static_cast<NSButton*>(sender) state] == NSControlStateValueOn); });
    return box;
}

NSAlertStyle alertStyle(screens::DialogStyle style) {
    switch (style) {
    case screens::DialogStyle::informational:
        return NSAlertStyleInformational;
    case screens::DialogStyle::warning:
        return NSAlertStyleWarning;
    case screens::DialogStyle::critical:
        return NSAlertStyleCritical;
    }
    return NSAlertStyleInformational;
}

} // namespace brimlet::mac
