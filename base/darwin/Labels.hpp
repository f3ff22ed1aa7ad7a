// The one-line label every AppKit surface builds from. Objective-C++ with AppKit.
#pragma once

#import <AppKit/AppKit.h>

namespace kestrow::mac {

// A label that never wraps, edits or selects, cut at its end when too long, laid out by constraints.
inline NSTextField* makeLabel(NSString* text, NSFont* font, NSColor* color) {
    NSTextField* label = [NSTextField labelWithString:text];
    label.font = font;
    label.textColor = color;
    label.lineBreakMode = NSLineBreakByTruncatingTail;
    label.maximumNumberOfLines = 1;
    label.translatesAutoresizingMaskIntoConstraints = NO;
    return label;
}

}  // namespace kestrow::mac
