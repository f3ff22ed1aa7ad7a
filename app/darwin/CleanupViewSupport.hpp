// Small pieces shared by the cleanup window's files: text conversion, the labels, buttons and
// symbols they are built from, and the item table that the "ready" step shows.
#pragma once

#import <AppKit/AppKit.h>

#include <functional>
#include <string>
#include <string_view>

#include "base/darwin/StringBridge.hpp"
#include "app/CleanupStore.hpp"

namespace brimlet::mac::cleanup {

inline NSString* text(std::string_view value) { return kestrow::mac::toNSString(value); }
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

// A one-line label in a system colour, so that dark mode follows by itself.
inline NSTextField* label(NSString* value, NSFont* font = systemFont(bodySize()),
                          NSColor* colour = NSColor.labelColor) {
    NSTextField* field = [NSTextField labelWithString:value];
    field.font = font;
    field.textColor = colour;
    field.lineBreakMode = NSLineBreakByTruncatingMiddle;
    [field setContentCompressionResistancePriority:NSLayoutPriorityDefaultLow
                                    forOrientation:NSLayoutConstraintOrientationHorizontal];
    return field;
}

// A label that wraps inside the width its stack gives it.
inline NSTextField* paragraph(NSString* value, NSColor* colour = NSColor.secondaryLabelColor) {
    NSTextField* field = [NSTextField wrappingLabelWithString:value];
    field.textColor = colour;
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

inline NSStackView* stack(NSArray<NSView*>* views, NSUserInterfaceLayoutOrientation orientation, CGFloat spacing) {
    NSStackView* made = [NSStackView stackViewWithViews:views];
    made.orientation = orientation;
    made.spacing = spacing;
    made.alignment = orientation == NSUserInterfaceLayoutOrientationVertical ? NSLayoutAttributeLeading
                                                                              : NSLayoutAttributeCenterY;
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
- (instancetype)initWithStore:(brimlet::CleanupStore*)store
                     onToggle:(std::function<void(const std::string& id, bool wanted)>)onToggle;
// Reads the items again after a measuring pass.
- (void)reloadItems;
// Shows the store's current choice without reading the items again.
- (void)refreshChoices;
@end
