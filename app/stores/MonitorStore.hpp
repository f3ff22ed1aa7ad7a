// The application's main-loop model of everything the monitor shows: the latest snapshot, the
// rolling history, the cheap system glance, the user's display settings and the alert state.
//
// It owns the engine and paces it: a full sample at once on start, then every 2 s while anything
// live needs figures (a visible surface, alerts, Dock badges) and every 10 s otherwise. The engine
// samples on its own executor; results come back to the loop through a relay, so nothing here ever
// blocks the loop or needs a lock. Deadlines count on the loop's continuous clock.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/desktop/Notifier.hpp"
#include "app/stores/MonitorSettings.hpp"
#include "app/stores/Observers.hpp"
#include "base/MainLoop.hpp"
#include "base/Time.hpp"
#include "base/UserDefaults.hpp"
#include "base/WeakGuard.hpp"
#include "core/monitoring/Alerts.hpp"
#include "core/monitoring/MetricsHistory.hpp"
#include "core/monitoring/MonitorEngine.hpp"

namespace brimlet {

// The appearance a launch argument may force on the application.
enum class MonitorAppearance { light, dark };

// What the platform hands the monitor store beside its loop, defaults and notifier.
struct MonitorStoreOptions {
    std::unique_ptr<MonitorEngine> engine;                 // empty: the live engine of this machine
    std::function<void(MonitorAppearance)> setAppearance;  // empty: the platform has none to force
    // False where the application has no menu bar item of its own (headless Linux): the menu
    // bar display then shows nothing, and only a floating monitor would need the glance.
    bool hasMenuBar = true;
};

class MonitorStore {
public:
    static constexpr kestrow::Seconds liveInterval{2};
    static constexpr kestrow::Seconds idleInterval{10};
    // How often the glance loop refreshes the cheap readout between full samples.
    static constexpr kestrow::Seconds glanceInterval{2};
    static constexpr std::int64_t historyTopApps = 5;
    static constexpr std::string_view logCategory = "monitor";

    // Opens the window with this identifier and brings the application forward.
    using OpenWindow = std::function<void(std::string_view windowIdentifier)>;
    using Appearance = MonitorAppearance;

    using Options = MonitorStoreOptions;

    // `arguments` as the process got them, the program path first. Starts sampling at once.
    MonitorStore(kestrow::MainLoop& loop, kestrow::UserDefaults& defaults, Notifier& notifier,
                 std::vector<std::string> arguments, Options options = {});
    ~MonitorStore();
    MonitorStore(const MonitorStore&) = delete;
    MonitorStore& operator=(const MonitorStore&) = delete;

    // ---- Observed: subscribers are called after any of these changed.
    kestrow::MainLoop::Token observe(std::function<void()> onChange) {
        return observers_.subscribe(std::move(onChange));
    }

    const std::optional<MonitorSnapshot>& snapshot() const { return snapshot_; }
    const MetricsHistory& history() const { return history_; }
    bool hasUndeliveredAlert() const { return hasUndeliveredAlert_; }
    void setHasUndeliveredAlert(bool value);  // a view clears it once the user saw the hint
    const std::optional<SystemGlance>& glance() const { return glance_; }

    MenuBarDisplay menuBarDisplay() const { return menuBarDisplay_; }
    void setMenuBarDisplay(MenuBarDisplay value);
    bool floatingVisible() const { return floatingVisible_; }
    void setFloatingVisible(bool value);
    bool floatingExpanded() const { return floatingExpanded_; }
    void setFloatingExpanded(bool value);
    bool floatingHovering() const { return floatingHovering_; }
    void setFloatingHovering(bool value);
    FloatingTheme floatingTheme() const { return floatingTheme_; }
    void setFloatingTheme(FloatingTheme value);
    FloatingLook floatingLook() const { return floatingLook_; }
    void setFloatingLook(FloatingLook value);
    DockBadgeMode dockBadges() const { return dockBadges_; }
    void setDockBadges(DockBadgeMode value);
    const DockBadgeSettings& dockBadgeSettings() const { return dockBadgeSettings_; }
    void setDockBadgeSettings(DockBadgeSettings value);
    const AlertSettings& alertSettings() const { return alertSettings_; }
    void setAlertSettings(AlertSettings value);  // stores them too
    void saveAlertSettings();
    bool hasOpenWindow() const { return static_cast<bool>(openWindow_); }

    // ---- Derived.
    bool alertsActive() const;
    bool dockBadgesActive() const { return dockBadges_ != DockBadgeMode::off; }
    bool glanceIsShown() const {
        return (hasMenuBar_ && menuBarDisplay_ != MenuBarDisplay::iconOnly) || floatingVisible_;
    }
    // The faint looks fade the monitor while it waits; under the pointer it reads as glass.
    FloatingLook effectiveFloatingLook() const;
    bool persistsSettings() const { return persistsSettings_; }
    // The interval the sampling loop waits now.
    kestrow::Seconds currentInterval() const;
    int visibleSurfaces() const { return visibleSurfaces_; }
    // A full sample is under way on the engine.
    bool isSampling() const { return samplesInFlight_ > 0; }

    // ---- Surfaces and windows.
    void surfaceAppeared();
    void surfaceDisappeared();
    void adoptOpenWindow(OpenWindow action);
    void openDashboard();
    // Opens one of the application's windows; false while no view has handed over the action yet.
    bool openWindow(std::string_view windowIdentifier);

    // ---- Hooks of the desktop controller and the intent router.
    std::function<void()> onDesktopChange;
    std::function<void()> onTick;
    std::function<void(const SystemGlance&)> onGlance;
    std::function<void()> completePendingOpen;

    // The launch arguments that keep this run's settings out of the user defaults.
    static bool persistsSettings(const std::vector<std::string>& arguments);

private:
    void save(const std::string& key, const kestrow::JsonValue& value);
    void changed();
    void desktopChanged();
    void cadenceMayHaveChanged(kestrow::Seconds previousInterval);
    void applyLaunchArguments();
    void applyWindowArguments();

    void restartLoop(bool sampleFirst);
    void scheduleNextRound(std::uint64_t generation);
    void tick(std::function<void()> then);
    void handle(MonitorSnapshot snapshot);
    void updateGlanceLoop();
    void readGlance();
    void setGlance(const SystemGlance& glance);
    kestrow::Date wallDate() const;

    kestrow::MainLoop& loop_;
    kestrow::UserDefaults& defaults_;
    Notifier& notifier_;
    std::vector<std::string> arguments_;
    std::function<void(Appearance)> setAppearance_;
    bool hasMenuBar_ = true;
    Observers observers_;

    std::optional<MonitorSnapshot> snapshot_;
    MetricsHistory history_{static_cast<std::int64_t>(MetricsHistory::defaultCapacity)};
    bool hasUndeliveredAlert_ = false;
    std::optional<SystemGlance> glance_;
    MenuBarDisplay menuBarDisplay_;
    bool floatingVisible_ = false;
    bool floatingExpanded_ = false;
    bool floatingHovering_ = false;
    FloatingTheme floatingTheme_;
    FloatingLook floatingLook_;
    DockBadgeMode dockBadges_;
    DockBadgeSettings dockBadgeSettings_;
    OpenWindow openWindow_;
    AlertSettings alertSettings_;

    AlertEvaluator evaluator_;
    int visibleSurfaces_ = 0;
    bool launchArgumentsApplied_ = false;
    bool openDashboardWhenReady_ = false;
    bool persistsSettings_ = true;
    kestrow::ContinuousTime launchedAt_{};
    bool firstSampleHandled_ = false;

    std::uint64_t loopGeneration_ = 0;
    kestrow::ContinuousTime deadline_{};
    kestrow::MainLoop::Token loopTimer_;
    kestrow::MainLoop::Token glanceTimer_;
    int samplesInFlight_ = 0;
    bool glanceInFlight_ = false;
    std::optional<kestrow::ContinuousTime> lastFullSampleAt_;

    kestrow::WeakGuard guard_;  // the engine's replies check it
    std::unique_ptr<MonitorEngine> engine_;
};

}  // namespace brimlet
