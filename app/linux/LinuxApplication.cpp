// The application on Linux, without windows: the monitor store samples at its cadence, the suite
// participant publishes the monitor's glance and competes for the host lock, the cleanup store
// waits idle, and alerts become desktop notifications, all on the epoll main loop. SIGINT and
// SIGTERM stop the loop; the participant then writes its stopped record and frees the lock.
#include "app/ApplicationRunner.hpp"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "FreedesktopNotifier.hpp"
#include "app/BrimletApplication.hpp"
#include "base/Files.hpp"
#include "base/Log.hpp"

namespace brimlet {

namespace {

constexpr std::string_view logCategory = "launch";

// The options this runner knows, and those that take the next argument as their value.
bool knownOption(const std::string& argument, bool& takesValue) {
    static const std::vector<std::string> flags = {"--floating", "--floating-expanded", "--dock-badges"};
    static const std::vector<std::string> valued = {"--suite-folder", "--appearance", "--open"};
    takesValue = std::find(valued.begin(), valued.end(), argument) != valued.end();
    return takesValue || std::find(flags.begin(), flags.end(), argument) != flags.end();
}

// A mistyped option should not quietly start a long-running process.
std::optional<std::string> unknownArgument(const std::vector<std::string>& arguments) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        bool takesValue = false;
        if (!knownOption(arguments[i], takesValue)) return arguments[i];
        if (takesValue) ++i;
    }
    return std::nullopt;
}

}  // namespace

const char* applicationHelp() {
    return "Without --snapshot-json it runs headless until SIGINT or SIGTERM:\n"
           "  samples the machine every 10 s (every 2 s while alerts are on, as they are\n"
           "  by default), publishes its glance to the Kestrow suite folder and competes\n"
           "  to host the suite, and posts alerts (critical memory pressure, low disk,\n"
           "  one app using a lot of memory) as desktop notifications on the session bus.\n"
           "  --suite-folder PATH   use a suite folder inside the temporary folder and the\n"
           "                        separate com.kestrow.brimlet.qa settings\n"
           "  --floating, --floating-expanded, --dock-badges\n"
           "                        turn these on for this run only; nothing the run\n"
           "                        changes is saved\n"
           "  Settings live in $XDG_CONFIG_HOME/kestrow/com.kestrow.brimlet.json.\n";
}

int runApplication(const std::vector<std::string>& arguments, std::vector<kestrow::suite::SuiteFolder> folders,
                   const SuiteLaunch::DefaultsDomain& suiteDomain) {
    if (auto unknown = unknownArgument(arguments)) {
        std::fputs(("KestrowBrimlet: unknown argument " + *unknown + " (see --help)\n").c_str(), stderr);
        return 2;
    }
    // First, before any thread starts: the loop takes SIGINT and SIGTERM for itself.
    std::unique_ptr<kestrow::MainLoop> loop = kestrow::makeSystemMainLoop(true);

    const std::string bundleIdentifier = SuiteLaunch::bundleIdentifier();
    std::unique_ptr<kestrow::UserDefaults> standard = kestrow::UserDefaults::standard(bundleIdentifier);
    if (!standard) {
        // Cannot happen with the fixed identifier; settings then last for this run only.
        kestrow::log::error(logCategory, "settings not available: they last for this run only");
        standard = std::make_unique<kestrow::InMemoryUserDefaults>();
    }
    std::unique_ptr<kestrow::UserDefaults> named;
    if (!suiteDomain.isStandard()) {
        named = kestrow::UserDefaults::named(*suiteDomain.suiteName);
        if (!named) {
            const SuiteLaunch::Exit exit = SuiteLaunch::qaDefaultsUnavailable();
            std::fputs(exit.standardError.c_str(), stderr);
            return exit.status;
        }
    }

    std::string folderNames;
    for (const auto& folder : folders) folderNames += (folderNames.empty() ? "" : ", ") + folder.url;

    FreedesktopNotifier notifier(*loop);
    BrimletApplication application(BrimletPlatform{
        .loop = *loop,
        .monitorDefaults = *standard,
        .suiteDefaults = named ? *named : *standard,
        .notifier = notifier,
        .arguments = arguments,
        .suiteFolders = std::move(folders),
        .home = kestrow::realHomeFolder(),
        .statusItems = {},
        // No floating monitor and no Dock here: the suite's record is this app's only readout.
        .makeFloating = {},
        .makeDock = {},
        .hotKeys = nullptr,
        .observeSystem = true,
        .intents = {},
        // No menu bar here: the glance loop runs only for a floating monitor, which headless
        // Linux has none of either; each full sample still publishes the suite readout.
        .monitorOptions = {.engine = nullptr, .setAppearance = {}, .hasMenuBar = false},
    });
    kestrow::log::info(logCategory, "running headless with the suite folder " + folderNames);

    loop->run();

    kestrow::log::info(logCategory, "stopping");
    application.shutdown();
    return 0;
}

}  // namespace brimlet
