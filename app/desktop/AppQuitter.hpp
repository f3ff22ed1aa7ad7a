// Asking a listed application to quit: always the polite request its own Quit command makes, never
// a kill. The platform lists the running applications and delivers the request; finding the one
// that belongs to a group, and the texts the row shows, are decided here.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/monitoring/MonitorTypes.hpp"

namespace brimlet {

// One entry of the system's list of running applications.
struct RunningApplication {
    std::int32_t processIdentifier = 0;
    std::optional<std::string> bundlePath;  // the path of its bundle URL; absent without one

    bool operator==(const RunningApplication&) const = default;
};

struct AppQuitter {
    // The help text of the unavailable quit control of a group that is not an application bundle.
    static constexpr std::string_view unavailableHelp = "Quit it from the app or terminal that started it.";

    static bool canQuit(const AppGroup& group) { return group.bundlePath.has_value(); }

    // The first running application (in the system's order) whose standardised bundle path equals
    // the group's; both sides are standardised so a trailing slash or a "." does not matter.
    static std::optional<RunningApplication> runningApplication(const AppGroup& group,
                                                                const std::vector<RunningApplication>& running);

    // Whom to ask: none for a group that is not running, and never this process itself.
    static std::optional<RunningApplication> quitTarget(const AppGroup& group,
                                                        const std::vector<RunningApplication>& running,
                                                        std::int32_t ownProcessIdentifier);

    // Hands the target to `terminate` (the platform's ordinary terminate request); false when there
    // was nobody to ask. Whether the application then agrees is its own business.
    static bool quit(const AppGroup& group, const std::vector<RunningApplication>& running,
                     std::int32_t ownProcessIdentifier,
                     const std::function<void(const RunningApplication&)>& terminate);

    // "Safari is using 1.25 GB. It will be asked to quit normally, …"; the memory text is the row's.
    static std::string confirmation(std::string_view name, std::string_view memoryText);
    // The same with the product's memory text of the group's footprint.
    static std::string confirmation(const AppGroup& group);
};

}  // namespace brimlet
