#include "app/startup/BrimletApplication.hpp"

#include <chrono>

namespace brimlet {

using kestrow::suite::SuiteApp;
using kestrow::suite::SuiteParticipant;

BrimletApplication::BrimletApplication(BrimletPlatform platform)
    : loop_(platform.loop),
      router_(std::move(platform.intents)) {
    monitor_ = std::make_shared<MonitorStore>(platform.loop, platform.monitorDefaults, platform.notifier,
                                              platform.arguments, std::move(platform.monitorOptions));

    SuiteParticipant::Options options;
    options.observeSystem = platform.observeSystem;
    options.onOpen = [monitor = std::weak_ptr<MonitorStore>(monitor_)] {
        if (auto store = monitor.lock()) store->openDashboard();
    };
    participant_ = std::make_unique<SuiteParticipant>(SuiteApp(SuiteApp::brimlet), std::move(platform.suiteFolders),
                                                      platform.suiteDefaults, std::move(platform.statusItems),
                                                      platform.loop, std::move(options));
    link_ = std::make_unique<ParticipantLink>(*participant_, platform.loop);

    cleanup_ = std::make_shared<CleanupStore>(platform.loop, platform.home);
    router_.link(monitor_, cleanup_);
    std::unique_ptr<FloatingMonitorController> floating =
        platform.makeFloating ? platform.makeFloating(*monitor_) : std::make_unique<NoFloatingMonitor>();
    std::unique_ptr<DockBadgeController> dock =
        platform.makeDock ? platform.makeDock(*monitor_) : std::make_unique<NoDockBadges>();
    desktop_ = std::make_unique<DesktopController>(platform.loop, *monitor_, *link_, std::move(floating),
                                                   std::move(dock), platform.hotKeys);
}

BrimletApplication::~BrimletApplication() {
    guard_.invalidate();
    pendingReopens_.clear();
    // The controller lets go of the store's hooks and the link before either goes.
    desktop_.reset();
    shutdown();
}

void BrimletApplication::handleReopen() {
    const kestrow::ContinuousTime arrivedAt = router_.uptime();
    const std::uint64_t id = nextReopen_++;
    pendingReopens_[id] = loop_.after(ReopenSuppression::reopenDelay, [alive = guard_.weak(), this, id, arrivedAt] {
        if (!alive) return;
        const kestrow::ContinuousTime checkedAt = router_.uptime();
        // A deliberate reopen first brings back an own icon the user dragged out of the menu bar:
        // with no Dock icon and no main menu it is the only way back to Settings and Quit.
        const bool deliberate = router_.lastRequest().reopenOpensDashboard(arrivedAt, checkedAt);
        if (deliberate && participant_->handleReopen()) {
            pendingReopens_.erase(id);
            return;
        }
        if (router_.lastRequest().opensDashboard(arrivedAt, checkedAt, participant_->showsOwnIcon()))
            monitor_->openDashboard();
        pendingReopens_.erase(id);  // last: destroys this very callback's token
    });
}

void BrimletApplication::shutdown() {
    if (participant_) participant_->shutdown();
}

}  // namespace brimlet
