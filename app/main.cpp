// The process entry. "--snapshot-json" is handled before anything else is set up; then the suite
// launch values are settled (either may end the process with status 2); then the application runs.
#include <algorithm>
#include <cstdio>
#include <string>
#include <variant>
#include <vector>

#include "ApplicationRunner.hpp"
#include "PlatformUsage.hpp"
#include "SnapshotCommand.hpp"
#include "SuiteLaunch.hpp"
#include "base/UserDefaults.hpp"

namespace {

bool has(const std::vector<std::string>& arguments, std::string_view name) {
    return std::find(arguments.begin() + (arguments.empty() ? 0 : 1), arguments.end(), name) != arguments.end();
}

int exitWith(const brimlet::SuiteLaunch::Exit& exit) {
    std::fputs(exit.standardError.c_str(), stderr);
    return exit.status;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv, argv + argc);
    // Nothing else is examined in this mode, not even an invalid "--suite-folder".
    if (has(arguments, "--snapshot-json")) {
        brimlet::SnapshotCommand::run();
        return 0;
    }
    if (has(arguments, "--help") || has(arguments, "-h")) {
        std::fputs(brimlet::platformUsageText(), stdout);
        std::fputs(brimlet::applicationHelp(), stdout);
        return 0;
    }

    auto folders = brimlet::SuiteLaunch::folders(arguments);
    if (const auto* exit = std::get_if<brimlet::SuiteLaunch::Exit>(&folders)) return exitWith(*exit);
    const auto defaults = brimlet::SuiteLaunch::defaults(
        arguments, brimlet::SuiteLaunch::bundleIdentifier(), [](const brimlet::SuiteLaunch::DefaultsDomain& domain) {
            return kestrow::UserDefaults::named(*domain.suiteName) != nullptr;
        });
    if (const auto* exit = std::get_if<brimlet::SuiteLaunch::Exit>(&defaults)) return exitWith(*exit);

    return brimlet::runApplication(arguments, std::move(std::get<0>(folders)),
                                   std::get<brimlet::SuiteLaunch::DefaultsDomain>(defaults));
}
