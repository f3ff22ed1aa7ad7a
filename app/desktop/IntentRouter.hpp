// How the system's intents reach the running application: the monitor's snapshot when it is fresh
// enough to answer from, and the cleanup window, opened now or as soon as a view can open windows.
// It holds the stores weakly; a store that is gone is simply not used. Main loop only.
#pragma once

#include <functional>
#include <future>
#include <memory>
#include <vector>

#include "app/desktop/BrimletWindows.hpp"
#include "app/stores/CleanupStore.hpp"
#include "app/stores/MonitorStore.hpp"
#include "base/Time.hpp"
#include "base/WeakGuard.hpp"
#include "core/intents/ReopenSuppression.hpp"

namespace brimlet {

class IntentRouter {
public:
    static constexpr kestrow::Seconds snapshotMaxAge{2};

    struct Environment {
        std::function<kestrow::ContinuousTime()> uptime;               // the continuous clock
        std::function<kestrow::Date()> now;                            // wall clock
        std::function<std::vector<BrimletWindows::Window>()> windows;  // the application's windows
        std::function<std::unique_ptr<MonitorEngine>()> makeEngine;    // for a reading of its own
    };

    enum class Target { cleanup };

    // Empty members of `environment` take this machine's clocks, no windows and the live engine.
    explicit IntentRouter(Environment environment = {});
    ~IntentRouter();
    IntentRouter(const IntentRouter&) = delete;
    IntentRouter& operator=(const IntentRouter&) = delete;

    // Sets the weak links and lets the monitor store complete a pending open through this router.
    void link(const std::shared_ptr<MonitorStore>& monitor, const std::shared_ptr<CleanupStore>& cleanup);

    // The store's snapshot when it is at most 2 s old (and not from the future); otherwise a new
    // engine samples once. Never refused.
    std::future<MonitorSnapshot> topAppsSnapshot();
    // The memory question's reading: always a new engine's system figures, never the store's, so
    // the answer is as current as the question.
    std::future<SystemGlance> memoryReading();
    // Opens the target window if a view has handed over the opening action; a window that is not on
    // screen over an idle or finished cleanup starts over first.
    bool openNow(Target target);
    // The cleanup intent: records the request time, then opens now or as soon as it can.
    void openCleanup();
    // Called when the window-opening action arrives: a deferred open happens now.
    void completePendingOpen();

    bool pendingCleanupOpen() const { return pendingCleanupOpen_; }
    kestrow::ContinuousTime uptime() const { return environment_.uptime(); }
    const ReopenSuppression& lastRequest() const { return lastRequest_; }

private:
    Environment environment_;
    std::weak_ptr<MonitorStore> monitor_;
    std::weak_ptr<CleanupStore> cleanup_;
    bool pendingCleanupOpen_ = false;
    ReopenSuppression lastRequest_;
    kestrow::WeakGuard guard_;
};

// The clock intent requests and reopens are compared on.
kestrow::ContinuousTime systemUptime();

}  // namespace brimlet
