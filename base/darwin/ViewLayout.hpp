// Auto Layout shorthand shared by the AppKit views. Objective-C++ only.
#pragma once

#import <AppKit/AppKit.h>

namespace kestrow::mac {

// Lays `view` over the whole of `container`, `insets` in from each edge (positive values inward).
inline void pinEdges(NSView* view, NSView* container, NSEdgeInsets insets = NSEdgeInsetsZero) {
    view.translatesAutoresizingMaskIntoConstraints = NO;
    [NSLayoutConstraint activateConstraints:@[
        [view.leadingAnchor constraintEqualToAnchor:container.leadingAnchor constant:insets.left],
        [view.trailingAnchor constraintEqualToAnchor:container.trailingAnchor constant:-insets.right],
        [view.topAnchor constraintEqualToAnchor:container.topAnchor constant:insets.top],
        [view.bottomAnchor constraintEqualToAnchor:container.bottomAnchor constant:-insets.bottom],
    ]];
}

}  // namespace kestrow::mac
