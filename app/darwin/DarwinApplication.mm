// The menu-bar application's start-up on macOS. NSApplication and its delegate come first, then the
// main loop (the main dispatch queue, which AppKit's run loop drains), the defaults, the notifier
// and the suite's AppKit pieces; then the application structure, the windows, the menu bar item and
// the intents' bridge, in that order, all before the run loop starts. The process normally ends in
// -[NSApplication terminate:], which calls exit() after the delegate's applicationWillTerminate:;
// that is where the suite hears this member stopped, so nothing after -run is relied on.
#include "app/startup/ApplicationRunner.hpp"

#import <AppKit/AppKit.h>
#include <dispatch/dispatch.h>
#include <signal.h>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#import "AppDelegate.h"
#include "MacFrontEnd.hpp"
#include "app/startup/BrimletApplication.hpp"
#include "app/startup/LaunchDefaults.hpp"
#include "app/startup/LaunchRole.hpp"
#include "base/Files.hpp"
#include "base/Log.hpp"
#include "base/darwin/StringBridge.hpp"
#include "suite/ui/darwin/SystemSuiteUI.hpp"

namespace brimlet {

namespace {

constexpr std::string_view logCategory = "launch";

// SIGINT and SIGTERM (Ctrl-C in Terminal, `kill`, launchd) end the app the way its Quit command
// does, so the stopped record is written and the host lock freed. The default action would end the
// process at once and leave the other members to wait for the record to expire.
class TerminationSignals {
public:
    TerminationSignals() {
        for (const int number : {SIGINT, SIGTERM}) {
            ::signal(number, SIG_IGN); // the source below sees the signal instead of the default action
            dispatch_source_t source = dispatch_source_create(
                DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(number), 0, dispatch_get_main_queue());
            if (source == nullptr) continue;
            dispatch_source_set_event_handler(source, ^{ [NSApp terminate:nil]; });
            dispatch_resume(source);
            sources_.push_back(source);
        }
    }
    ~TerminationSignals() {
        for (dispatch_source_t source : sources_)
            dispatch_source_cancel(source);
    }
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

private:
    std::vector<dispatch_source_t> sources_;
};

void forceAppearance(MonitorStore::Appearance appearance) {
    NSAppearanceName name =
        appearance == MonitorStore::Appearance::dark ? NSAppearanceNameDarkAqua : NSAppearanceNameAqua;
    NSApp.appearance = [NSAppearance appearanceNamed:name];
}

// Everything the run holds, for the life of the process.
class MacSession final : public mac::ApplicationSession {
public:
    MacSession(const std::vector<std::string>& arguments, std::vector<kestrow::suite::SuiteFolder> folders,
               std::unique_ptr<kestrow::MainLoop> loop, LaunchDefaults defaults)
        : loop_(std::move(loop)), defaults_(std::move(defaults)),
          // A click on an alert opens the dashboard, once the application is there to open it.
          notifier_(mac::makeUserNotificationNotifier(*loop_,
                                                      [this] {
                                                          if (application_) application_->monitor().openDashboard();
                                                      })),
          hotKeys_(kestrow::suite::mac::systemHotKeyCenter(*loop_)) {
        MonitorStore::Options monitorOptions;
        monitorOptions.setAppearance = forceAppearance;
        IntentRouter::Environment intents;
        // The presenter comes after the application structure; until then there are no windows.
        intents.windows = [this] { return windows(); };

        application_ = std::make_unique<BrimletApplication>(BrimletPlatform{
            .loop = *loop_,
            .monitorDefaults = defaults_.monitor(),
            .suiteDefaults = defaults_.suite(),
            .notifier = *notifier_,
            .arguments = arguments,
            .suiteFolders = std::move(folders),
            .home = kestrow::realHomeFolder(),
            .statusItems = kestrow::suite::mac::systemStatusItemFactory(*loop_, hotKeys_),
            .makeFloating = mac::makeFloatingMonitor,
            .makeDock = mac::makeDockBadges,
            .hotKeys = &hotKeys_,
            .observeSystem = true,
            .intents = std::move(intents),
            .monitorOptions = std::move(monitorOptions),
        });

        presenter_ = mac::makeWindowPresenter(*application_);
        if (presenter_) {
            // The store now opens windows itself: the dashboard on a suite open request or a
            // reopen, a deferred cleanup intent, and the "--open" argument.
            application_->monitor().adoptOpenWindow(
                [presenter = presenter_.get()](std::string_view identifier) { presenter->open(identifier); });
            menuBar_ = mac::makeMenuBar(*application_, *presenter_);
            mainMenu_ = mac::installMainMenu(*presenter_);
        } else {
            kestrow::log::error(logCategory, "no windows in this build: the menu bar item and window requests are off");
        }
        mac::installIntentBridge(application_.get());
    }

    BrimletApplication& application() override { return *application_; }

    std::vector<BrimletWindows::Window> windows() const override {
        return presenter_ ? presenter_->windows() : std::vector<BrimletWindows::Window>{};
    }

    void end() override {
        if (ended_) return;
        ended_ = true;
        kestrow::log::info(logCategory, "stopping");
        mac::installIntentBridge(nullptr); // no intent reaches a store from here on
        application_->shutdown();
    }

private:
    std::unique_ptr<kestrow::MainLoop> loop_;
    LaunchDefaults defaults_;
    std::unique_ptr<Notifier> notifier_;
    kestrow::suite::HotKeyCenter& hotKeys_;
    std::unique_ptr<BrimletApplication> application_;
    std::unique_ptr<mac::WindowPresenter> presenter_;
    std::unique_ptr<mac::MenuBar> menuBar_;
    std::unique_ptr<mac::MainMenuInstallation> mainMenu_;
    // Held for the life of the process: App Nap would slow the sampling and the suite record of a
    // member that shows no window (its icon hidden), and its row would go stale in the suite.
    id<NSObject> activity_ =
        [NSProcessInfo.processInfo beginActivityWithOptions:NSActivityUserInitiatedAllowingIdleSystemSleep
                                                     reason:kestrow::mac::toNSString(LaunchRole::activityReason)];
    TerminationSignals signals_;
    bool ended_ = false;
};

} // namespace

int runApplication(const std::vector<std::string>& arguments, std::vector<kestrow::suite::SuiteFolder> folders,
                   const SuiteLaunch::DefaultsDomain& suiteDomain) {
    // The arguments were checked against the launch table before; the system's own
    // ("-NSDocumentRevisionsDebugMode YES", "-AppleLanguages (…)") were let through there.
    NSApplication* application = [NSApplication sharedApplication];
    AppDelegate* delegate = [[AppDelegate alloc] init];
    application.delegate = delegate; // a weak reference: `delegate` keeps it for the run

    std::unique_ptr<kestrow::MainLoop> loop = kestrow::makeSystemMainLoop(false); // signals: see above
    std::variant<LaunchDefaults, SuiteLaunch::Exit> opened =
        LaunchDefaults::open(suiteDomain, SuiteLaunch::bundleIdentifier());
    if (const SuiteLaunch::Exit* exit = std::get_if<SuiteLaunch::Exit>(&opened)) {
        std::fputs(exit->standardError.c_str(), stderr);
        return exit->status;
    }

    kestrow::log::info(logCategory, "starting the menu-bar app");
    for (const auto& folder : folders)
        kestrow::log::info(logCategory, "suite folder: " + folder.url);

    auto session = std::make_unique<MacSession>(arguments, std::move(folders), std::move(loop),
                                                std::get<LaunchDefaults>(std::move(opened)));
    delegate.session = session.get();
    [AppDelegate settleRoleBeforeRun];
    [application run];

    // Reached only when something stopped the run loop instead of terminating the app.
    delegate.session = nullptr;
    session->end();
    return 0;
}

} // namespace brimlet
