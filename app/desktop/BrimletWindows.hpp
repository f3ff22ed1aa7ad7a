// The application's own windows, recognised by identifier. The window system may add a suffix to an
// identifier when it opens another instance ("dashboard-1"), so a hyphen and anything after it
// still names the same window; a longer word ("dashboards") does not.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace brimlet {

struct BrimletWindows {
    static constexpr std::string_view dashboard = "dashboard";
    static constexpr std::string_view cleanup = "cleanup";
    static constexpr std::string_view settings = "settings";
    static constexpr std::array<std::string_view, 3> identifiers{dashboard, cleanup, settings};

    // What the platform reports of one of its windows; an empty identifier for a window without one.
    struct Window {
        std::string identifier;
        bool isVisible = false;
        bool isMiniaturized = false;
        bool operator==(const Window&) const = default;
    };

    static bool belongs(std::string_view windowIdentifier, std::string_view id);
    // A miniaturised window counts as open: the user put it aside, not away.
    static bool isOpen(std::string_view id, const std::vector<Window>& windows);
    // Any of the three, checked in their order.
    static bool anyOpen(const std::vector<Window>& windows);
};

}  // namespace brimlet
