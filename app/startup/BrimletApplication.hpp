// The application's structure for the life of the process, the same on every platform: the monitor
// store, the suite participant for `brimlet`, the cleanup store, the reopen handler, the intent
// router's links and the desktop controller, created in that order on the main loop. A platform
// front end (AppKit on macOS, the headless runner on Linux) supplies the seams and runs the loop.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/desktop/DesktopController.hpp"
#include "app/desktop/IntentRouter.hpp"
#include "app/desktop/Notifier.hpp"
#include "app/stores/CleanupStore.hpp"
#include "app/stores/MonitorStore.hpp"
#include "base/MainLoop.hpp"
#include "base/UserDefaults.hpp"
#include "base/WeakGuard.hpp"
#include "suite/protocol/SuiteFolder.hpp"
#include "suite/ui/SuiteParticipant.hpp"

namespace brimlet {

struct BrimletPlatform {
    kestrow::MainLoop& loop;
    kestrow::UserDefaults& monitorDefaults;  // the application's standard defaults
    kestrow::UserDefaults& suiteDefaults;    // the standard ones, or the ".qa" domain of a test run
    Notifier& notifier;
    std::vector<std::string> arguments;  // the program path first
    std::vector<kestrow::suite::SuiteFolder> suiteFolders;
    std::string home;  // the folder cleanup works in
    kestrow::suite::SuiteStatusItemFactory statusItems;
    // Made once the monitor store exists, which they show; empty: the platform has none.
    std::function<std::unique_ptr<FloatingMonitorController>(MonitorStore&)> makeFloating;
    std::function<std::unique_ptr<DockBadgeController>(MonitorStore&)> makeDock;
    kestrow::suite::HotKeyCenter* hotKeys = nullptr;
    bool observeSystem = true;
    IntentRouter::Environment intents;
    MonitorStore::Options monitorOptions;
};

class BrimletApplication {
public:
    explicit BrimletApplication(BrimletPlatform platform);
    ~BrimletApplication();
    BrimletApplication(const BrimletApplication&) = delete;
    BrimletApplication& operator=(const BrimletApplication&) = delete;

    MonitorStore& monitor() { return *monitor_; }
    kestrow::suite::SuiteParticipant& participant() { return *participant_; }
    // The participant as the views follow it: one call per turn of the loop after it changed.
    SuiteLink& suite() { return *link_; }
    CleanupStore& cleanup() { return *cleanup_; }
    IntentRouter& router() { return router_; }
    DesktopController& desktop() { return *desktop_; }

    // The handler the platform calls on a reopen: after a short wait, unless the reopen is the side
    // effect of an intent, brings back an own icon the user removed, or else opens the dashboard
    // when this application shows no menu bar icon of its own.
    void handleReopen();
    // At the end of the run: the suite learns this application stopped and the host lock is freed.
    void shutdown();

private:
    kestrow::MainLoop& loop_;
    IntentRouter router_;
    std::shared_ptr<MonitorStore> monitor_;
    std::unique_ptr<kestrow::suite::SuiteParticipant> participant_;
    std::unique_ptr<ParticipantLink> link_;
    std::shared_ptr<CleanupStore> cleanup_;
    std::unique_ptr<DesktopController> desktop_;
    std::map<std::uint64_t, kestrow::MainLoop::Token> pendingReopens_;
    std::uint64_t nextReopen_ = 0;
    kestrow::WeakGuard guard_;
};

}  // namespace brimlet
