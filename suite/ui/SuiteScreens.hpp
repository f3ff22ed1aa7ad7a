// The host's two screens as plain values: the popover under the shared menu bar item and the
// floating bar. Every text, glyph, level and control comes from here; the platform layer lays them
// out and hands a click back (a member line opens that member, the controls act on the host).
#pragma once

#include <string>
#include <vector>

#include "SuiteFormat.hpp"
#include "suite/protocol/SuiteState.hpp"

namespace kestrow::suite {

enum class SuiteCommand { openMember, toggleFloatingBar, expandFloatingBar, collapseFloatingBar, hideFloatingBar };

// A button or switch of the suite's screens: its words, its SF Symbol and what it does.
struct SuiteControl {
    std::string title;
    std::string symbol;
    std::string accessibilityLabel;
    SuiteCommand action = SuiteCommand::openMember;
    bool on = false;  // a switch's state
    bool operator==(const SuiteControl&) const = default;
};

// One value of a member, as the expanded bar lists it under the member's line.
struct SuiteValueLine {
    std::string label;
    std::string value;
    GlanceLevel level;  // ok draws plainly, notice and alert in their tint
    std::string accessibilityLabel;
    bool operator==(const SuiteValueLine&) const = default;
};

struct SuiteMemberRow {
    SuiteRowLine line;
    std::string help;                    // the member's full name, as a tooltip
    std::vector<SuiteValueLine> values;  // every value of its record; none when not running
    bool operator==(const SuiteMemberRow&) const = default;
};

struct SuitePopoverScreen {
    std::string title;
    std::string membersLabel;  // what VoiceOver calls the list
    std::vector<SuiteMemberRow> members;
    SuiteControl floatingBar;  // the switch
    std::string shortcut;      // shown beside the switch; empty while the shortcut is not this host's
    bool operator==(const SuitePopoverScreen&) const = default;
};

struct SuiteBarScreen {
    std::string accessibilityLabel;
    std::vector<SuiteMemberRow> members;
    bool expanded = false;
    SuiteControl expand;  // expands, or collapses while expanded
    SuiteControl hide;
    bool operator==(const SuiteBarScreen&) const = default;
};

namespace SuiteScreens {

inline constexpr std::string_view membersLabel = "Suite members";

SuiteMemberRow member(const SuiteRow& row, const NumberLocale& locale);
SuitePopoverScreen popover(const std::vector<SuiteRow>& rows, bool floatingVisible, bool hotKeyRegistered,
                           const NumberLocale& locale);
SuiteBarScreen bar(const std::vector<SuiteRow>& rows, bool expanded, const NumberLocale& locale);

}  // namespace SuiteScreens

}  // namespace kestrow::suite
