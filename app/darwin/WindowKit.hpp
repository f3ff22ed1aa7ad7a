// Small AppKit helpers shared by the dashboard and settings windows: text from the core's UTF-8
// strings, labels in the system's styles, colors for health grades, and controls that call a
// block, so each window stays a plain list of views over its store.
#pragma once

#import <AppKit/AppKit.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "app/screens/ScreenParts.hpp"
#include "base/darwin/Activation.hpp"
#include "base/darwin/Labels.hpp"
#include "base/darwin/StringBridge.hpp"
#include "core/monitoring/MetricsHistory.hpp"

namespace brimlet::mac {

using kestrow::mac::toNSString;
using kestrow::mac::utf8;

// A one-line label in a text style of the system.
inline NSTextField* makeLabel(NSString* text, NSFontTextStyle style, NSColor* color) {
    return kestrow::mac::makeLabel(text, [NSFont preferredFontForTextStyle:style options:@{}], color);
}
// A label that wraps at `width` points: notes and explanations under controls.
NSTextField* makeNote(NSString* text, CGFloat width);
// A section heading.
NSTextField* makeHeading(NSString* text);

// The color of a grade, from the system palette so it follows dark mode and increased contrast.
NSColor* ratingColor(std::optional<Rating> rating);

// Calls `block` with the control whenever it sends its action; the block lives as long as the control.
void onAction(NSControl* control, void (^block)(id sender));

// A pop-up button over `titles` with `selected` chosen and a VoiceOver label.
NSPopUpButton* makePopUp(NSArray<NSString*>* titles, NSInteger selected, NSString* accessibilityLabel,
                         void (^changed)(NSInteger index));
// A checkbox whose title is also its VoiceOver label.
NSButton* makeCheckbox(NSString* title, bool on, void (^changed)(bool on));

using kestrow::mac::activateApplication;

NSAlertStyle alertStyle(screens::DialogStyle style);

// An alert that asks `dialog`: its style, title, message and buttons in order, so that the button
// the user chose is `dialog.buttons[response - NSAlertFirstButtonReturn]`.
template <typename Action>
NSAlert* makeAlert(const screens::Dialog<Action>& dialog) {
    NSAlert* alert = [[NSAlert alloc] init];
    alert.alertStyle = alertStyle(dialog.style);
    if (!dialog.symbol.empty())
        if (NSImage* icon = [NSImage imageWithSystemSymbolName:toNSString(dialog.symbol) accessibilityDescription:nil])
            alert.icon = icon;
    alert.messageText = toNSString(dialog.title);
    alert.informativeText = toNSString(dialog.message);
    for (const screens::Control<Action>& control : dialog.buttons) {
        NSButton* made = [alert addButtonWithTitle:toNSString(control.title)];
        made.hasDestructiveAction = control.isDestructive;
    }
    return alert;
}

// The button of `dialog` a response stands for; the last one (the dismissing one) for any other end.
template <typename Action>
const screens::Control<Action>* answer(const screens::Dialog<Action>& dialog, NSModalResponse response) {
    if (dialog.buttons.empty()) return nullptr;
    const NSInteger index = response - NSAlertFirstButtonReturn;
    if (index >= 0 && static_cast<std::size_t>(index) < dialog.buttons.size())
        return &dialog.buttons[static_cast<std::size_t>(index)];
    return &dialog.buttons.back();
}

// Asks `dialog` as a sheet of `window`; `answered` gets the button the user chose (the last one when
// the sheet ends any other way).
template <typename Action>
void askDialog(const screens::Dialog<Action>& dialog, NSWindow* window,
               std::type_identity_t<std::function<void(const screens::Control<Action>&)>> answered) {
    NSAlert* alert = makeAlert(dialog);
    const screens::Dialog<Action> asked = dialog;
    [alert beginSheetModalForWindow:window
                  completionHandler:^(NSModalResponse response) {
                    if (const screens::Control<Action>* chosen = answer(asked, response)) answered(*chosen);
                  }];
}

}  // namespace brimlet::mac
