// The role the application settles into once launching finished. The system may start it
// background-only to answer an intent; it then takes the menu-bar role like a normal launch, so the
// user's later clicks reach its menu bar item and windows. Any other role is left as it is.
#pragma once

#include <optional>
#include <string_view>

namespace brimlet {

struct LaunchRole {
    // The application's activation policy as the window system reports it.
    enum class Policy { regular, accessory, prohibited };

    static constexpr std::string_view logCategory = "launch";
    static constexpr std::string_view backgroundLaunchMessage =
        "Launched background-only (an intent): switched to the menu bar app role";

    // The policy to switch to; none when the current one stays.
    static constexpr std::optional<Policy> switchTo(Policy current) {
        if (current == Policy::prohibited) return Policy::accessory;
        return std::nullopt;
    }

    // The policy to take before the run loop starts. Outside its bundle (the executable of a build
    // folder) nothing marks the application as a menu-bar one and it would start with a Dock icon;
    // a background-only launch is left to `switchTo`.
    static constexpr std::optional<Policy> beforeRun(Policy current) {
        if (current == Policy::regular) return Policy::accessory;
        return std::nullopt;
    }

    // Why the process keeps App Nap away for its life: a member whose icon is hidden has no window
    // on screen, yet its sampling and its suite record must keep their pace. For the system's
    // diagnostics only.
    static constexpr std::string_view activityReason = "live figures and the suite record keep their pace";
};

}  // namespace brimlet
