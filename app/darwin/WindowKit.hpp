// Small AppKit helpers shared by the dashboard and settings windows: text from the core's UTF-8
// strings, labels in the system's styles, colours for health grades, and controls that call a
// block, so each window stays a plain list of views over its store.
#pragma once

#import <AppKit/AppKit.h>

#include <optional>
#include <string>
#include <string_view>

#include "base/darwin/StringBridge.hpp"
#include "core/monitoring/MetricsHistory.hpp"

namespace brimlet::mac {

inline NSString* ns(std::string_view text) { return kestrow::mac::toNSString(text); }
using kestrow::mac::utf8;

// A one-line label that cannot be edited or selected, in a text style of the system.
NSTextField* makeLabel(NSString* text, NSFontTextStyle style, NSColor* color);
// A label that wraps at `width` points: notes and explanations under controls.
NSTextField* makeNote(NSString* text, CGFloat width);
// A section heading.
NSTextField* makeHeading(NSString* text);

// The colour of a grade, from the system palette so it follows dark mode and increased contrast.
NSColor* ratingColor(std::optional<Rating> rating);

// Calls `block` with the control whenever it sends its action; the block lives as long as the control.
void onAction(NSControl* control, void (^block)(id sender));

// A pop-up button over `titles` with `selected` chosen and a VoiceOver label.
NSPopUpButton* makePopUp(NSArray<NSString*>* titles, NSInteger selected, NSString* accessibilityLabel,
                         void (^changed)(NSInteger index));
// A checkbox whose title is also its VoiceOver label.
NSButton* makeCheckbox(NSString* title, bool on, void (^changed)(bool on));

}  // namespace brimlet::mac
