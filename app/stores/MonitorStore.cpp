#include "app/stores/MonitorStore.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "app/desktop/BrimletWindows.hpp"
#include "base/Log.hpp"
#include "base/Rounding.hpp"

namespace brimlet {

namespace Keys = MonitorSettingKeys;
using namespace MonitorSettingsCoding;

namespace {

constexpr std::string_view floatingArgument = "--floating";
constexpr std::string_view floatingExpandedArgument = "--floating-expanded";
constexpr std::string_view dockBadgesArgument = "--dock-badges";
constexpr std::string_view appearanceArgument = "--appearance";
constexpr std::string_view openArgument = "--open";

bool hasArgument(const std::vector<std::string>& arguments, std::string_view name) {
    return arguments.size() > 1 && std::find(arguments.begin() + 1, arguments.end(), name) != arguments.end();
}

// The argument after `name`, when there is one.
std::optional<std::string> valueAfter(const std::vector<std::string>& arguments, std::string_view name) {
    for (std::size_t i = 1; i + 1 < arguments.size(); ++i)
        if (arguments[i] == name) return arguments[i + 1];
    return std::nullopt;
}

}  // namespace

bool MonitorStore::persistsSettings(const std::vector<std::string>& arguments) {
    return !hasArgument(arguments, floatingArgument) && !hasArgument(arguments, floatingExpandedArgument) &&
           !hasArgument(arguments, dockBadgesArgument);
}

MonitorStore::MonitorStore(kestrow::MainLoop& loop, kestrow::UserDefaults& defaults, Notifier& notifier,
                           std::vector<std::string> arguments, Options options)
    : loop_(loop),
      defaults_(defaults),
      notifier_(notifier),
      arguments_(std::move(arguments)),
      setAppearance_(std::move(options.setAppearance)),
      hasMenuBar_(options.hasMenuBar),
      alertSettings_(readAlertSettings(defaults)),
      engine_(options.engine ? std::move(options.engine) : std::make_unique<MonitorEngine>()) {
    launchedAt_ = loop_.now();
    evaluator_.wording = AlertWording::forThisPlatform();
    menuBarDisplay_ = readEnum<MenuBarDisplay>(defaults_, Keys::menuBarDisplay);
    floatingVisible_ = readBool(defaults_, Keys::floatingVisible, false);
    floatingTheme_ = readEnum<FloatingTheme>(defaults_, Keys::floatingTheme);
    floatingLook_ = readEnum<FloatingLook>(defaults_, Keys::floatingLook);
    dockBadges_ = readEnum<DockBadgeMode>(defaults_, Keys::dockBadges);
    dockBadgeSettings_ = readDockBadgeSettings(defaults_);
    applyLaunchArguments();
    restartLoop(true);
    updateGlanceLoop();
}

MonitorStore::~MonitorStore() {
    guard_.invalidate();
    loopTimer_.cancel();
    glanceTimer_.cancel();
}

// ---- Settings

void MonitorStore::applyLaunchArguments() {
    persistsSettings_ = persistsSettings(arguments_);
    // What these turn on holds for this run only: persistence is already off when they apply.
    if (hasArgument(arguments_, floatingArgument) || hasArgument(arguments_, floatingExpandedArgument))
        floatingVisible_ = true;
    if (hasArgument(arguments_, floatingExpandedArgument)) floatingExpanded_ = true;
    if (hasArgument(arguments_, dockBadgesArgument)) dockBadges_ = DockBadgeMode::memory;
}

void MonitorStore::save(const std::string& key, const kestrow::JsonValue& value) {
    if (!persistsSettings_) return;
    if (const kestrow::Status saved = defaults_.set(key, value); saved.failed())
        kestrow::log::error(logCategory, "setting not saved: " + key + ": " + saved.message());
}

void MonitorStore::changed() { observers_.notify(); }

void MonitorStore::desktopChanged() {
    if (onDesktopChange) onDesktopChange();
}

void MonitorStore::cadenceMayHaveChanged(kestrow::Seconds previousInterval) {
    // A restart with the same interval would only postpone the next sample.
    if (currentInterval() != previousInterval) restartLoop(false);
}

void MonitorStore::setHasUndeliveredAlert(bool value) {
    if (hasUndeliveredAlert_ == value) return;
    hasUndeliveredAlert_ = value;
    changed();
}

void MonitorStore::setMenuBarDisplay(MenuBarDisplay value) {
    if (menuBarDisplay_ == value) return;
    menuBarDisplay_ = value;
    save(Keys::menuBarDisplay, kestrow::JsonValue(value.rawValue()));
    changed();
    updateGlanceLoop();
}

void MonitorStore::setFloatingVisible(bool value) {
    if (floatingVisible_ == value) return;
    floatingVisible_ = value;
    save(Keys::floatingVisible, kestrow::JsonValue(value));
    changed();
    desktopChanged();
    updateGlanceLoop();
}

void MonitorStore::setFloatingExpanded(bool value) {
    if (floatingExpanded_ == value) return;
    floatingExpanded_ = value;
    changed();
    desktopChanged();
}

void MonitorStore::setFloatingHovering(bool value) {
    if (floatingHovering_ == value) return;
    floatingHovering_ = value;
    changed();
    desktopChanged();
}

void MonitorStore::setFloatingTheme(FloatingTheme value) {
    if (floatingTheme_ == value) return;
    floatingTheme_ = value;
    save(Keys::floatingTheme, kestrow::JsonValue(value.rawValue()));
    changed();
    desktopChanged();
}

void MonitorStore::setFloatingLook(FloatingLook value) {
    if (floatingLook_ == value) return;
    floatingLook_ = value;
    save(Keys::floatingLook, kestrow::JsonValue(value.rawValue()));
    changed();
    desktopChanged();
}

void MonitorStore::setDockBadges(DockBadgeMode value) {
    if (dockBadges_ == value) return;
    const kestrow::Seconds before = currentInterval();
    dockBadges_ = value;
    save(Keys::dockBadges, kestrow::JsonValue(value.rawValue()));
    changed();
    desktopChanged();
    cadenceMayHaveChanged(before);
}

void MonitorStore::setDockBadgeSettings(DockBadgeSettings value) {
    if (dockBadgeSettings_ == value) return;
    dockBadgeSettings_ = value;
    if (auto encoded = value.encoded(); encoded.ok()) save(Keys::dockBadgeSettings, kestrow::JsonValue(*encoded));
    changed();
    desktopChanged();
}

void MonitorStore::setAlertSettings(AlertSettings value) {
    if (alertSettings_ == value) return;
    const kestrow::Seconds before = currentInterval();
    alertSettings_ = value;
    saveAlertSettings();
    changed();
    cadenceMayHaveChanged(before);
}

void MonitorStore::saveAlertSettings() {
    if (auto encoded = encode(alertSettings_); encoded.ok()) save(Keys::alertSettings, kestrow::JsonValue(*encoded));
}

bool MonitorStore::alertsActive() const {
    return alertSettings_.memoryPressureEnabled || alertSettings_.lowDiskEnabled || alertSettings_.heavyAppEnabled;
}

FloatingLook MonitorStore::effectiveFloatingLook() const {
    const bool fades = floatingLook_ == FloatingLook::subtle || floatingLook_ == FloatingLook::faint;
    return fades && floatingHovering_ ? FloatingLook(FloatingLook::glass) : floatingLook_;
}

kestrow::Seconds MonitorStore::currentInterval() const {
    return visibleSurfaces_ > 0 || alertsActive() || dockBadgesActive() ? liveInterval : idleInterval;
}

// ---- Surfaces and windows

void MonitorStore::surfaceAppeared() {
    const kestrow::Seconds before = currentInterval();
    ++visibleSurfaces_;
    cadenceMayHaveChanged(before);
}

void MonitorStore::surfaceDisappeared() {
    const kestrow::Seconds before = currentInterval();
    visibleSurfaces_ = std::max(0, visibleSurfaces_ - 1);
    cadenceMayHaveChanged(before);
}

void MonitorStore::adoptOpenWindow(OpenWindow action) {
    if (!openWindow_ && action) {
        openWindow_ = std::move(action);
        changed();
    }
    if (!openWindow_) return;
    if (completePendingOpen) completePendingOpen();
    if (!launchArgumentsApplied_) {
        launchArgumentsApplied_ = true;
        applyWindowArguments();
    }
    if (openDashboardWhenReady_) {
        openDashboardWhenReady_ = false;
        openWindow_(BrimletWindows::dashboard);
    }
}

void MonitorStore::applyWindowArguments() {
    if (auto appearance = valueAfter(arguments_, appearanceArgument); appearance && setAppearance_)
        setAppearance_(*appearance == "dark" ? Appearance::dark : Appearance::light);
    if (auto window = valueAfter(arguments_, openArgument)) {
        const auto& ids = BrimletWindows::identifiers;
        if (std::find(ids.begin(), ids.end(), *window) != ids.end()) openWindow_(*window);
        else kestrow::log::error(logCategory, "--open names no window: " + *window);
    }
}

void MonitorStore::openDashboard() {
    if (!openWindow(BrimletWindows::dashboard)) openDashboardWhenReady_ = true;
}

bool MonitorStore::openWindow(std::string_view windowIdentifier) {
    if (!openWindow_) return false;
    openWindow_(windowIdentifier);
    return true;
}

// ---- Sampling

kestrow::Date MonitorStore::wallDate() const {
    return std::chrono::round<std::chrono::microseconds>(loop_.wallClock());
}

void MonitorStore::restartLoop(bool sampleFirst) {
    const std::uint64_t generation = ++loopGeneration_;
    loopTimer_.cancel();
    deadline_ = loop_.now();
    if (!sampleFirst) {
        scheduleNextRound(generation);
        return;
    }
    tick([this, generation] {
        if (generation == loopGeneration_) scheduleNextRound(generation);
    });
}

void MonitorStore::scheduleNextRound(std::uint64_t generation) {
    const kestrow::ContinuousTime now = loop_.now();
    const kestrow::Seconds interval = currentInterval();
    deadline_ += interval;
    // A deadline already behind (a sample slower than the interval, a wake after a long sleep,
    // whose overdue round just ran) starts the cadence afresh: missed rounds are not made up.
    if (deadline_ <= now) deadline_ = now + interval;
    loopTimer_ = loop_.after(deadline_ - now, [this, generation] {
        tick([this, generation] {
            if (generation == loopGeneration_) scheduleNextRound(generation);
        });
    });
}

void MonitorStore::tick(std::function<void()> then) {
    ++samplesInFlight_;
    engine_->snapshot(loop_, [alive = guard_.weak(), this, then = std::move(then)](MonitorSnapshot snapshot) {
        if (!alive) return;
        --samplesInFlight_;
        handle(std::move(snapshot));
        if (then) then();
    });
}

void MonitorStore::handle(MonitorSnapshot snapshot) {
    const bool first = !firstSampleHandled_;
    firstSampleHandled_ = true;
    const auto elapsedMs = [this] {
        return std::to_string(
            kestrow::roundedToInteger(std::chrono::duration<double, std::milli>(loop_.now() - launchedAt_).count()));
    };
    if (first) kestrow::log::info(logCategory, "first-sample-ready " + elapsedMs() + " ms");

    snapshot_ = std::move(snapshot);
    history_.append(*snapshot_, historyTopApps);
    lastFullSampleAt_ = loop_.now();
    setGlance(snapshot_->glance());

    for (const Alert& alert : evaluator_.evaluate(*snapshot_, alertSettings_, wallDate())) {
        notifier_.post(alert, [alive = guard_.weak(), this](bool delivered) {
            if (alive && !delivered) setHasUndeliveredAlert(true);
        });
    }
    changed();
    if (onTick) onTick();
    if (first) kestrow::log::info(logCategory, "first-sample-delivered " + elapsedMs() + " ms");
}

void MonitorStore::setGlance(const SystemGlance& glance) {
    if (glance_ && *glance_ == glance) return;
    glance_ = glance;
    if (onGlance) onGlance(glance);
}

void MonitorStore::updateGlanceLoop() {
    if (!glanceIsShown()) {
        glanceTimer_.cancel();
        return;
    }
    if (glanceTimer_.active()) return;
    glanceTimer_ = loop_.repeat(glanceInterval, glanceInterval / 10, [this] { readGlance(); });
}

void MonitorStore::readGlance() {
    // While full samples come as often as glances would, or one just came, the figures are fresh.
    if (glanceInFlight_ || currentInterval() <= glanceInterval) return;
    if (lastFullSampleAt_ && loop_.now() - *lastFullSampleAt_ < glanceInterval) return;
    glanceInFlight_ = true;
    engine_->glance(loop_, [alive = guard_.weak(), this](SystemGlance glance) {
        if (!alive) return;
        glanceInFlight_ = false;
        if (!glanceIsShown()) return;
        const bool differs = !glance_ || !(*glance_ == glance);
        setGlance(glance);
        if (differs) changed();
    });
}

}  // namespace brimlet
