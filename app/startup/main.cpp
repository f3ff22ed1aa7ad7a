// The process entry. "--snapshot-json" is handled before anything else is set up, then "--help" and
// "--version", then the cleaner's "--measure" and "--clean", which need no suite; then the suite
// launch values are settled and the other options checked (any of them may end the process with
// status 2); then the application runs.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "app/Platform.hpp"
#include "app/commands/CleanerCommand.hpp"
#include "app/commands/SnapshotCommand.hpp"
#include "app/startup/ApplicationRunner.hpp"
#include "app/startup/PlatformUsage.hpp"
#include "app/startup/SuiteLaunch.hpp"
#include "app/tui/TerminalRunner.hpp"
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
    // Output is a courtesy: a reader that went away ("| head -1") must not kill the app before it
    // has published or written its stopped record. Writes to a closed pipe then just fail.
    std::signal(SIGPIPE, SIG_IGN);
    // Every entry the platform provides, named once here so that a port missing one fails to link.
    std::apply([](auto... seam) { (static_cast<void>(seam), ...); }, brimlet::platform::appSeams);
    const std::vector<std::string> arguments(argv, argv + argc);
    // Nothing else is examined in this mode, not even an invalid "--suite-folder".
    if (has(arguments, "--snapshot-json")) {
        brimlet::SnapshotCommand::run();
        return 0;
    }
    const brimlet::LaunchPlatform platform = brimlet::currentLaunchPlatform();
    if (has(arguments, "--help") || has(arguments, "-h")) {
        std::fputs(brimlet::LaunchOptions::help(platform, brimlet::platformDescription()).c_str(), stdout);
        return 0;
    }
    if (has(arguments, "--version")) {
        std::printf("KestrowBrimlet %.*s\n", static_cast<int>(brimlet::LaunchOptions::version().size()),
                    brimlet::LaunchOptions::version().data());
        return 0;
    }
    // The cleaner for scripts checks its own arguments and never starts the application.
    if (brimlet::CleanerCommand::isRequested(arguments))
        return brimlet::CleanerCommand::runProcess(arguments, platform);

    auto folders = brimlet::SuiteLaunch::folders(arguments);
    if (const auto* exit = std::get_if<brimlet::SuiteLaunch::Exit>(&folders)) return exitWith(*exit);
    const auto defaults = brimlet::SuiteLaunch::defaults(
        arguments, brimlet::SuiteLaunch::bundleIdentifier(), [](const brimlet::SuiteLaunch::DefaultsDomain& domain) {
            return kestrow::UserDefaults::named(*domain.suiteName) != nullptr;
        });
    if (const auto* exit = std::get_if<brimlet::SuiteLaunch::Exit>(&defaults)) return exitWith(*exit);
    // The suite folder's own problems come first, as above; then every other option is checked, so
    // a mistyped one never quietly starts a long-running process.
    if (const auto exit = brimlet::LaunchOptions::validate(arguments, platform)) return exitWith(*exit);

    if (has(arguments, "--tui"))
        return brimlet::runTerminalApplication(arguments, std::move(std::get<0>(folders)),
                                               std::get<brimlet::SuiteLaunch::DefaultsDomain>(defaults));
    return brimlet::runApplication(arguments, std::move(std::get<0>(folders)),
                                   std::get<brimlet::SuiteLaunch::DefaultsDomain>(defaults));
}
