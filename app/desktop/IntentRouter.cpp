#include "app/desktop/IntentRouter.hpp"

#include "core/intents/IntentAnswers.hpp"
#include "core/intents/IntentRoutePolicy.hpp"

namespace brimlet {

kestrow::ContinuousTime systemUptime() { return kestrow::ContinuousClock::now(); }

IntentRouter::IntentRouter(Environment environment) : environment_(std::move(environment)) {
    if (!environment_.uptime) environment_.uptime = systemUptime;
    if (!environment_.now) environment_.now = kestrow::currentDate;
    if (!environment_.windows) environment_.windows = [] { return std::vector<BrimletWindows::Window>{}; };
    if (!environment_.makeEngine) environment_.makeEngine = [] { return std::make_unique<MonitorEngine>(); };
}

IntentRouter::~IntentRouter() {
    guard_.invalidate();
    if (auto monitor = monitor_.lock()) monitor->completePendingOpen = nullptr;
}

void IntentRouter::link(const std::shared_ptr<MonitorStore>& monitor, const std::shared_ptr<CleanupStore>& cleanup) {
    monitor_ = monitor;
    cleanup_ = cleanup;
    if (monitor) {
        monitor->completePendingOpen = [alive = guard_.weak(), this] {
            if (alive) completePendingOpen();
        };
    }
}

std::future<MonitorSnapshot> IntentRouter::topAppsSnapshot() {
    if (auto monitor = monitor_.lock();
        monitor && monitor->snapshot() &&
        IntentAnswers::isFresh(monitor->snapshot()->date, environment_.now(), snapshotMaxAge)) {
        std::promise<MonitorSnapshot> ready;
        ready.set_value(*monitor->snapshot());
        return ready.get_future();
    }
    // A reading of its own: the app was started just for the question, or its figures are old.
    std::shared_ptr<MonitorEngine> engine = environment_.makeEngine();
    return std::async(std::launch::async, [engine] { return engine->snapshot().get(); });
}

std::future<SystemGlance> IntentRouter::memoryReading() {
    std::shared_ptr<MonitorEngine> engine = environment_.makeEngine();
    return std::async(std::launch::async, [engine] { return engine->glance().get(); });
}

bool IntentRouter::openNow(Target target) {
    (void)target;  // the cleanup window is the only one an intent opens
    auto monitor = monitor_.lock();
    if (!monitor || !monitor->hasOpenWindow()) return false;
    const bool windowOnScreen = BrimletWindows::isOpen(BrimletWindows::cleanup, environment_.windows());
    auto cleanup = cleanup_.lock();
    const bool storeBusy = cleanup && cleanup->isBusy();
    if (cleanup && IntentRoutePolicy::shouldResetBeforeOpening(windowOnScreen, storeBusy)) cleanup->resetToIdle();
    return monitor->openWindow(BrimletWindows::cleanup);
}

void IntentRouter::openCleanup() {
    lastRequest_.noteRequest(environment_.uptime());
    if (!openNow(Target::cleanup)) pendingCleanupOpen_ = true;
}

void IntentRouter::completePendingOpen() {
    if (!pendingCleanupOpen_ || !openNow(Target::cleanup)) return;
    pendingCleanupOpen_ = false;
    // The window's appearance may make the system send a reopen: that one is suppressed too.
    lastRequest_.noteRequest(environment_.uptime());
}

}  // namespace brimlet
