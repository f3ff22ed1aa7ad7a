// Small pieces shared by the cleanup window's files: text conversion, the labels, buttons and
// symbols they are built from, and the item table that the "ready" step shows.
#pragma once

#import <AppKit/AppKit.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "WindowKit.hpp"
#include "app/screens/CleanupScreen.hpp"
#include "app/stores/CleanupStore.hpp"
#include "base/darwin/Labels.hpp"
#include "base/darwin/StringBridge.hpp"

namespace brimlet::mac::cleanup {

using brimlet::mac::askDialog;
using kestrow::mac::toNSString;
using kestrow::mac::utf8;

inline CGFloat bodySize() { return NSFont.systemFontSize; }
inline CGFloat smallSize() { return NSFont.smallSystemFontSize; }
inline NSFont* systemFont(CGFloat size, NSFontWeight weight = NSFontWeightRegular) {
    return [NSFont systemFontOfSize:size weight:weight];
}
// Digits of equal width, so that sizes line up and do not jitter as they change.
inline NSFont* digitsFont(CGFloat size, NSFontWeight weight = NSFontWeightRegular) {
    return [NSFont monospacedDigitSystemFontOfSize:size weight:weight];
}

// A one-line label in a system color, so that dark mode follows by itself.
inline NSTextField* label(NSString* value, NSFont* font = systemFont(bodySize()), NSColor* color = NSColor.labelColor) {
    NSTextField* field = kestrow::mac::makeLabel(value, font, color);
    // Paths lose their middle: the folder names that tell two apart are mostly at their ends.
    field.lineBreakMode = NSLineBreakByTruncatingMiddle;
    [field setContentCompressionResistancePriority:NSLayoutPriorityDefaultLow
                                    forOrientation:NSLayoutConstraintOrientationHorizontal];
    return field;
}

// A label that wraps inside the width its stack gives it.
inline NSTextField* paragraph(NSString* value, NSColor* color = NSColor.secondaryLabelColor) {
    NSTextField* field = [NSTextField wrappingLabelWithString:value];
    field.textColor = color;
    field.selectable = NO;
    [field setContentCompressionResistancePriority:NSLayoutPriorityDefaultLow
                                    forOrientation:NSLayoutConstraintOrientationHorizontal];
    return field;
}

inline NSImage* symbol(NSString* name, NSString* description) {
    return [NSImage imageWithSystemSymbolName:name accessibilityDescription:description];
}

// A push button with an SF Symbol before its title.
inline NSButton* button(NSString* title, NSString* symbolName, id target, SEL action) {
    NSButton* made = [NSButton buttonWithTitle:title target:target action:action];
    if (NSImage* image = symbol(symbolName, nil)) {
        made.image = image;
        made.imagePosition = NSImageLeading;
    }
    return made;
}

// A control as the presenter describes it: title, symbol, spoken label, help, state and keys. The
// action goes in the tag, for the one selector that hands it back.
inline void apply(NSButton* made, const brimlet::CleanupControl& control) {
    made.title = toNSString(control.title);
    made.enabled = control.enabled;
    made.tag = static_cast<NSInteger>(control.action);
    [made setAccessibilityLabel:toNSString(control.spokenLabel())];
    made.toolTip = control.help.empty() ? nil : toNSString(control.help);
    if (control.isDefault) made.keyEquivalent = @"\r";
    else if (control.isCancel) made.keyEquivalent = @"\x1b";  // Escape
    made.hasDestructiveAction = control.isDestructive;
}

inline NSButton* button(const brimlet::CleanupControl& control, id target, SEL action) {
    NSButton* made = control.symbol.empty()
                         ? [NSButton buttonWithTitle:toNSString(control.title) target:target action:action]
                         : button(toNSString(control.title), toNSString(control.symbol), target, action);
    apply(made, control);
    return made;
}

inline NSColor* toneColor(brimlet::screens::Tone tone) {
    switch (tone) {
    case brimlet::screens::Tone::plain: return NSColor.labelColor;
    case brimlet::screens::Tone::secondary: return NSColor.secondaryLabelColor;
    case brimlet::screens::Tone::success: return NSColor.systemGreenColor;
    case brimlet::screens::Tone::warning: return NSColor.systemOrangeColor;
    case brimlet::screens::Tone::failure: return NSColor.systemRedColor;
    }
    return NSColor.labelColor;
}

inline NSStackView* stack(NSArray<NSView*>* views, NSUserInterfaceLayoutOrientation orientation, CGFloat spacing) {
    NSStackView* made = [NSStackView stackViewWithViews:views];
    made.orientation = orientation;
    made.spacing = spacing;
    made.alignment =
        orientation == NSUserInterfaceLayoutOrientationVertical ? NSLayoutAttributeLeading : NSLayoutAttributeCenterY;
    return made;
}

// Keeps `view` as wide as its vertical stack.
inline void fillWidth(NSView* view, NSStackView* within) {
    view.translatesAutoresizingMaskIntoConstraints = NO;
    [view.widthAnchor constraintEqualToAnchor:within.widthAnchor].active = YES;
}

}  // namespace brimlet::mac::cleanup

// The measured and scanned items with a checkbox each: name and explanation, category, size, and
// why it is safe or why it is held back. Space toggles the focused row's checkbox. Every choice
// goes to `onToggle`, which asks the store (and, for a personal item, the user) first.
@interface KBCleanupItemsTable : NSObject <NSTableViewDataSource, NSTableViewDelegate>
@property(nonatomic, readonly) NSScrollView* view;
// `onToggle` gets the checkbox control of the row the user clicked or pressed Space on.
- (instancetype)initWithLabel:(const std::string&)label
                      columns:(const std::vector<std::string>&)columns
                     onToggle:(std::function<void(const brimlet::CleanupControl& include)>)onToggle;
// Shows these rows: all of them when the ids changed, else only the checkboxes.
- (void)showRows:(const std::vector<brimlet::CleanupItemRow>&)rows;
@end
