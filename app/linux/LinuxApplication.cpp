// The application on Linux, without windows: the monitor store samples at its cadence, the suite
// participant publishes the monitor's glance and competes for the host lock, the cleanup store
// waits idle, and alerts become desktop notifications, all on the epoll main loop. SIGINT and
// SIGTERM stop the loop; the participant then writes its stopped record and frees the lock.
#include "app/startup/ApplicationRunner.hpp"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "FreedesktopNotifier.hpp"
#include "app/startup/BrimletApplication.hpp"
#include "app/startup/LaunchDefaults.hpp"
#include "base/Files.hpp"
#include "base/Log.hpp"

namespace brimlet {

namespace {

constexpr std::string_view logCategory = "launch";

}  // namespace

int runApplication(const std::vector<std::string>& arguments, std::vector<kestrow::suite::SuiteFolder> folders,
                   const SuiteLaunch::DefaultsDomain& suiteDomain) {
    // First, before any thread starts: the loop takes SIGINT and SIGTERM for itself.
    std::unique_ptr<kestrow::MainLoop> loop = kestrow::makeSystemMainLoop(true);

    std::variant<LaunchDefaults, SuiteLaunch::Exit> opened =
        LaunchDefaults::open(suiteDomain, SuiteLaunch::bundleIdentifier());
    if (const SuiteLaunch::Exit* exit = std::get_if<SuiteLaunch::Exit>(&opened)) {
        std::fputs(exit->standardError.c_str(), stderr);
        return exit->status;
    }
    const LaunchDefaults& defaults = std::get<LaunchDefaults>(opened);
    // Cannot happen with the fixed identifier.
    if (defaults.inMemory()) kestrow::log::error(logCategory, "settings not available: they last for this run only");

    std::string folderNames;
    for (const auto& folder : folders) folderNames += (folderNames.empty() ? "" : ", ") + folder.url;

    FreedesktopNotifier notifier(*loop);
    BrimletApplication application(BrimletPlatform{
        .loop = *loop,
        .monitorDefaults = defaults.monitor(),
        .suiteDefaults = defaults.suite(),
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
