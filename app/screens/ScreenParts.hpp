// The pieces every screen is described with: controls that name the action they trigger, dialogs,
// and the tone of a line. A front end (the AppKit views, the terminal, the tests) draws these as it
// likes; it decides no text, no flag and no action of its own.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brimlet::screens {

// How a line stands out: a front end maps these to its colors and weights.
enum class Tone { plain, secondary, success, warning, failure };

// A push button, checkbox, menu entry or link. `action` is what the front end hands back to the
// presenter; `target` names the row it belongs to (an item id, a window), empty for the screen's own.
template <typename Action>
struct Control {
    std::string title;
    std::string symbol;              // an SF Symbol name; front ends without symbols ignore it
    std::string accessibilityLabel;  // what a screen reader says; the title when empty
    std::string help;                // the tooltip, or why the control is unavailable
    Action action{};
    std::string target;
    bool enabled = true;
    bool isDefault = false;      // Return
    bool isCancel = false;       // Escape
    bool isDestructive = false;  // drawn as a warning where the front end can
    bool operator==(const Control&) const = default;

    const std::string& spokenLabel() const { return accessibilityLabel.empty() ? title : accessibilityLabel; }
};

enum class DialogStyle { informational, warning, critical };

// A question or a message that stops the screen until answered. The first button confirms, the
// last one dismisses; a front end that answers for the user (Escape, closing) picks the last.
template <typename Action>
struct Dialog {
    DialogStyle style = DialogStyle::informational;
    std::string symbol;
    std::string title;
    std::string message;
    std::vector<Control<Action>> buttons;
    bool operator==(const Dialog&) const = default;
};

// A figure with its caption, as lists of readings show it.
struct Reading {
    std::string title;
    std::string value;
    std::string caption;
    bool operator==(const Reading&) const = default;
};

}  // namespace brimlet::screens
