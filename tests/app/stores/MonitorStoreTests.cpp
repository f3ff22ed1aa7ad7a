// The monitor store on a manual clock over scripted readers: its cadence, its settings, what one
// sample does, and the launch arguments.
#include <gtest/gtest.h>

#include "tests/app/AppTestSupport.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

using namespace std::chrono_literals;
using kestrow::Seconds;

using kestrow::InMemoryUserDefaults;
using kestrow::JsonValue;
using testing::StoreRig;

struct Cadence : ::testing::Test {
    StoreRig rig;
    InMemoryUserDefaults defaults;
    std::vector<double> sampledAt;
    std::unique_ptr<MonitorStore> store;

    void start() {
        store = rig.makeStore(defaults);
        store->onTick = [this] { sampledAt.push_back(rig.loop.elapsed().count()); };
        ASSERT_TRUE(rig.settle([&] { return sampledAt.size() == 1; }));
    }
    // Moves the clock and lets every sample that fell due come back from the engine.
    void advance(Seconds length) {
        rig.loop.advance(length);
        delivered();
    }
    void delivered() {
        ASSERT_TRUE(rig.settle([&] { return !store->isSampling(); }));
    }
};

TEST_F(Cadence, TenSecondsWhenIdleTwoTheMomentASurfaceAppears) {
    testing::idleSettings(defaults);
    start();
    EXPECT_EQ(sampledAt, std::vector<double>{0});  // one sample at once on start
    EXPECT_EQ(store->currentInterval(), MonitorStore::idleInterval);
    advance(Seconds(9.5));
    EXPECT_EQ(sampledAt.size(), 1u);
    advance(Seconds(0.5));
    advance(10s);
    EXPECT_EQ(sampledAt, (std::vector<double>{0, 10, 20}));

    // At 23 the popover opens: the next sample comes 2 s later, not at 30.
    advance(3s);
    store->surfaceAppeared();
    EXPECT_EQ(store->currentInterval(), MonitorStore::liveInterval);
    for (int i = 0; i < 4; ++i) advance(1s);
    EXPECT_EQ(sampledAt, (std::vector<double>{0, 10, 20, 25, 27}));

    // A second surface keeps the rhythm; the last one gone brings 10 s back.
    store->surfaceAppeared();
    store->surfaceDisappeared();
    advance(2s);
    store->surfaceDisappeared();
    store->surfaceDisappeared();  // one too many is harmless
    EXPECT_EQ(store->visibleSurfaces(), 0);
    advance(Seconds(9.5));
    advance(Seconds(0.5));
    EXPECT_EQ(sampledAt, (std::vector<double>{0, 10, 20, 25, 27, 29, 39}));
}

TEST_F(Cadence, AlertsAndDockBadgesKeepItLive) {
    testing::idleSettings(defaults);
    start();
    AlertSettings alerts = store->alertSettings();
    alerts.lowDiskEnabled = true;
    store->setAlertSettings(alerts);
    EXPECT_TRUE(store->alertsActive());
    advance(2s);
    EXPECT_EQ(sampledAt.back(), 2);
    alerts.lowDiskEnabled = false;
    store->setAlertSettings(alerts);
    store->setDockBadges(DockBadgeMode::cpu);
    advance(2s);
    EXPECT_EQ(sampledAt.back(), 4);
    store->setDockBadges(DockBadgeMode::off);
    advance(2s);
    EXPECT_EQ(sampledAt.back(), 4);
    advance(8s);
    EXPECT_EQ(sampledAt.back(), 14);
}

TEST_F(Cadence, ASleepLongerThanTheIntervalGivesOneSampleNotABurst) {
    testing::idleSettings(defaults);
    start();
    rig.loop.sleep(3600s);
    delivered();
    advance(1s);
    EXPECT_EQ(sampledAt.size(), 2u);
    advance(9s);
    EXPECT_EQ(sampledAt.back(), 3610);
}

TEST(MonitorStoreSettings, UnknownOrMistypedValuesReadAsDefaults) {
    struct Case {
        const char* key;
        JsonValue stored;
        std::function<bool(const MonitorStore&)> readsAsDefault;
    };
    const AlertSettings defaultAlerts;
    const std::vector<Case> cases = {
        {"menuBarDisplay", JsonValue("sparkline"),
         [](auto& s) { return s.menuBarDisplay() == MenuBarDisplay::barAndPercent; }},
        {"menuBarDisplay", JsonValue("IconOnly"),
         [](auto& s) { return s.menuBarDisplay() == MenuBarDisplay::barAndPercent; }},
        {"menuBarDisplay", JsonValue(std::int64_t{1}),
         [](auto& s) { return s.menuBarDisplay() == MenuBarDisplay::barAndPercent; }},
        {"floating.visible", JsonValue("true"), [](auto& s) { return !s.floatingVisible(); }},
        {"floating.theme", JsonValue("midnight"), [](auto& s) { return s.floatingTheme() == FloatingTheme::system; }},
        {"floating.look", JsonValue(""), [](auto& s) { return s.floatingLook() == FloatingLook::glass; }},
        {"dock.badges", JsonValue("disk"), [](auto& s) { return s.dockBadges() == DockBadgeMode::off; }},
        {"dock.badgeSettings", JsonValue(R"({"memoryThreshold":1})"),
         [](auto& s) { return s.dockBadgeSettings() == DockBadgeSettings(); }},
        {"dock.badgeSettings", JsonValue("not json"),
         [](auto& s) { return s.dockBadgeSettings() == DockBadgeSettings(); }},
        {"alertSettings", JsonValue(R"({"lowDiskEnabled":false})"),
         [=](auto& s) { return s.alertSettings() == defaultAlerts; }},
        {"alertSettings", JsonValue(std::int64_t{7}), [=](auto& s) { return s.alertSettings() == defaultAlerts; }},
    };
    for (const Case& c : cases) {
        StoreRig rig;
        InMemoryUserDefaults defaults;
        ASSERT_TRUE(defaults.set(c.key, c.stored).ok());
        auto store = rig.makeStore(defaults);
        EXPECT_TRUE(c.readsAsDefault(*store)) << c.key << " = " << *kestrow::writeJson(c.stored);
    }

    // Known values read back as stored.
    StoreRig rig;
    InMemoryUserDefaults defaults;
    (void)defaults.set("menuBarDisplay", JsonValue("bar"));
    (void)defaults.set("floating.visible", JsonValue(true));
    (void)defaults.set("floating.look", JsonValue("faint"));
    (void)defaults.set("dock.badges", JsonValue("cpu"));
    (void)defaults.set("dock.badgeSettings", JsonValue(R"({"cpuThreshold":25,"memoryThreshold":1048576})"));
    auto store = rig.makeStore(defaults);
    EXPECT_EQ(store->menuBarDisplay(), MenuBarDisplay::bar);
    EXPECT_TRUE(store->floatingVisible());
    EXPECT_EQ(store->floatingLook(), FloatingLook::faint);
    EXPECT_EQ(store->effectiveFloatingLook(), FloatingLook::faint);
    store->setFloatingHovering(true);
    EXPECT_EQ(store->effectiveFloatingLook(), FloatingLook::glass);
    EXPECT_EQ(store->dockBadges(), DockBadgeMode::cpu);
    EXPECT_EQ(store->dockBadgeSettings().memoryThreshold, 1048576u);
    EXPECT_EQ(store->dockBadgeSettings().cpuThreshold, 25.0);
}

TEST(MonitorStoreSettings, ALaunchArgumentKeepsTheRunsChangesFromTheNextStart) {
    for (const char* argument : {"--floating", "--floating-expanded", "--dock-badges"}) {
        kestrow::testing::TempFolder temp;
        StoreRig rig;
        {
            kestrow::FileUserDefaults defaults(temp.path(), "com.kestrow.brimlet");
            auto store = rig.makeStore(defaults, {argument});
            EXPECT_FALSE(store->persistsSettings()) << argument;
            const std::string which = argument;
            EXPECT_EQ(store->floatingVisible(), which != "--dock-badges") << argument;
            EXPECT_EQ(store->floatingExpanded(), which == "--floating-expanded") << argument;
            EXPECT_EQ(store->dockBadges(), which == "--dock-badges" ? DockBadgeMode::memory : DockBadgeMode::off);
            store->setFloatingVisible(!store->floatingVisible());
            store->setMenuBarDisplay(MenuBarDisplay::iconOnly);
        }
        kestrow::FileUserDefaults defaults(temp.path(), "com.kestrow.brimlet");
        auto restarted = rig.makeStore(defaults);
        EXPECT_TRUE(restarted->persistsSettings());
        EXPECT_FALSE(restarted->floatingVisible()) << argument;
        EXPECT_EQ(restarted->menuBarDisplay(), MenuBarDisplay::barAndPercent) << argument;
        EXPECT_EQ(restarted->dockBadges(), DockBadgeMode::off) << argument;
    }

    // Without them the same changes survive.
    kestrow::testing::TempFolder temp;
    StoreRig rig;
    {
        kestrow::FileUserDefaults defaults(temp.path(), "com.kestrow.brimlet");
        auto store = rig.makeStore(defaults, {"--suite-folder", "/tmp/x", "--floatingish"});
        EXPECT_TRUE(store->persistsSettings());
        store->setFloatingVisible(true);
        store->setMenuBarDisplay(MenuBarDisplay::iconOnly);
        AlertSettings alerts;
        alerts.lowDiskThreshold = 5;
        store->setAlertSettings(alerts);
    }
    kestrow::FileUserDefaults defaults(temp.path(), "com.kestrow.brimlet");
    auto restarted = rig.makeStore(defaults);
    EXPECT_TRUE(restarted->floatingVisible());
    EXPECT_EQ(restarted->menuBarDisplay(), MenuBarDisplay::iconOnly);
    EXPECT_EQ(restarted->alertSettings().lowDiskThreshold, 5u);
}

TEST(MonitorStoreSettings, GlanceIsHiddenOnlyForTheIconAloneWithoutFloating) {
    for (const MenuBarDisplay& display : MenuBarDisplay::allCases()) {
        for (bool floating : {false, true}) {
            for (bool hasMenuBar : {true, false}) {
                StoreRig rig;
                InMemoryUserDefaults defaults;
                (void)defaults.set("menuBarDisplay", JsonValue(display.rawValue()));
                (void)defaults.set("floating.visible", JsonValue(floating));
                MonitorStore::Options options;
                options.hasMenuBar = hasMenuBar;
                auto store = rig.makeStore(defaults, {}, std::move(options));
                // Without a menu bar item of its own only the floating monitor shows the glance.
                const bool shown = (hasMenuBar && !(display == MenuBarDisplay::iconOnly)) || floating;
                const std::string trace =
                    std::string(display.rawValue()) + (floating ? " floating" : "") + (hasMenuBar ? "" : " headless");
                EXPECT_EQ(store->glanceIsShown(), shown) << trace;
                // The glance loop runs exactly while the glance is shown.
                EXPECT_EQ(rig.loop.repeatingTimers().size(), shown ? 1u : 0u) << trace;
            }
        }
    }
}

TEST(MonitorStoreTick, HistoryGlanceAlertsAndTheHooks) {
    StoreRig rig;
    InMemoryUserDefaults defaults;
    (void)defaults.set("menuBarDisplay", JsonValue("iconOnly"));
    rig.system.volumes["/"].availableBlocks = 2'000'000'000ULL / 4096;  // 2 GB free: low
    rig.notifier.delivers = false;
    int ticks = 0, desktopChanges = 0, observed = 0;
    std::vector<SystemGlance> published;
    auto store = rig.makeStore(defaults);
    auto subscription = store->observe([&] { ++observed; });
    store->onTick = [&] { ++ticks; };
    store->onGlance = [&](const SystemGlance& glance) { published.push_back(glance); };
    store->onDesktopChange = [&] { ++desktopChanges; };
    ASSERT_TRUE(rig.settle([&] { return ticks == 1 && store->hasUndeliveredAlert(); }));

    ASSERT_TRUE(store->snapshot());
    EXPECT_EQ(store->history().points.size(), 1u);
    EXPECT_EQ(store->history().points[0].appFootprints.size(), 2u);
    ASSERT_EQ(published.size(), 1u);
    EXPECT_EQ(published[0].memoryTotal, 16ULL << 30);
    ASSERT_EQ(rig.notifier.posted.size(), 1u);
    EXPECT_EQ(rig.notifier.posted[0].kind, AlertKind::lowDisk);
    // In this platform's words: a Linux user has no cleanup window to open.
    EXPECT_EQ(rig.notifier.posted[0].body, "2.0 GB free. " + AlertWording::forThisPlatform().reclaimSpace);
    EXPECT_GE(observed, 2);  // the snapshot, then the undelivered alert

    // Same figures: no new glance and, within the cool-down, no second alert.
    rig.loop.advance(2s);
    ASSERT_TRUE(rig.settle([&] { return ticks == 2; }));
    EXPECT_EQ(published.size(), 1u);
    EXPECT_EQ(rig.notifier.posted.size(), 1u);
    EXPECT_EQ(store->history().points.size(), 2u);

    // New figures publish a new glance.
    rig.system.memoryCounters = MeminfoFigures{16ULL << 30, 2ULL << 30, 0, 0, 0, 0, 0, 0};
    rig.loop.advance(2s);
    ASSERT_TRUE(rig.settle([&] { return ticks == 3; }));
    ASSERT_EQ(published.size(), 2u);
    EXPECT_EQ(published[1].memoryUsed, 14ULL << 30);

    store->setHasUndeliveredAlert(false);
    store->setFloatingTheme(FloatingTheme::dark);
    store->setMenuBarDisplay(MenuBarDisplay::bar);  // the menu bar is not a desktop change
    EXPECT_EQ(desktopChanges, 1);
    EXPECT_EQ(defaults.value("floating.theme"), JsonValue("dark"));
}

TEST(MonitorStoreTick, TheGlanceLoopFillsInBetweenIdleSamples) {
    StoreRig rig;
    InMemoryUserDefaults defaults;
    testing::idleSettings(defaults);
    (void)defaults.set("floating.visible", JsonValue(true));
    std::vector<SystemGlance> published;
    int ticks = 0;
    auto store = rig.makeStore(defaults);
    store->onTick = [&] { ++ticks; };
    store->onGlance = [&](const SystemGlance& glance) { published.push_back(glance); };
    ASSERT_TRUE(rig.settle([&] { return ticks == 1; }));
    ASSERT_EQ(published.size(), 1u);

    rig.system.memoryCounters = MeminfoFigures{16ULL << 30, 4ULL << 30, 0, 0, 0, 0, 0, 0};
    rig.loop.advance(2s);
    ASSERT_TRUE(rig.settle([&] { return published.size() == 2; }));
    EXPECT_EQ(published[1].memoryUsed, 12ULL << 30);
    EXPECT_EQ(ticks, 1);  // no full sample was due

    // Hiding the floating monitor with the icon alone in the menu bar stops the glance loop.
    store->setFloatingVisible(false);
    EXPECT_TRUE(rig.loop.repeatingTimers().empty());
}

TEST(MonitorStoreWindows, WindowArgumentsApplyOnceWhenTheOpenerArrives) {
    struct Case {
        std::vector<std::string> arguments;
        std::vector<std::string> opened;
        std::optional<MonitorStore::Appearance> appearance;
    };
    using A = MonitorStore::Appearance;
    const std::vector<Case> cases = {
        {{"--open", "cleanup", "--appearance", "dark"}, {"cleanup"}, A::dark},
        {{"--appearance", "Dark"}, {}, A::light},
        {{"--appearance", "light", "--open", "settings"}, {"settings"}, A::light},
        {{"--open", "dashboards"}, {}, std::nullopt},
        {{"--open"}, {}, std::nullopt},
        {{"--appearance"}, {}, std::nullopt},
    };
    for (const Case& c : cases) {
        StoreRig rig;
        InMemoryUserDefaults defaults;
        std::optional<A> appearance;
        MonitorStore::Options options;
        options.setAppearance = [&](A a) { appearance = a; };
        auto store = rig.makeStore(defaults, c.arguments, std::move(options));
        std::vector<std::string> opened;
        EXPECT_FALSE(store->openWindow("dashboard"));
        store->adoptOpenWindow([&](std::string_view id) { opened.emplace_back(id); });
        store->adoptOpenWindow([&](std::string_view id) { opened.emplace_back(id); });
        EXPECT_EQ(opened, c.opened) << c.arguments[0];
        EXPECT_EQ(appearance, c.appearance) << c.arguments[0];
    }

    // A dashboard asked for before any view could open windows opens once the opener arrives.
    StoreRig rig;
    InMemoryUserDefaults defaults;
    auto store = rig.makeStore(defaults);
    store->openDashboard();
    std::vector<std::string> opened;
    int pendingChecks = 0;
    store->completePendingOpen = [&] { ++pendingChecks; };
    store->adoptOpenWindow([&](std::string_view id) { opened.emplace_back(id); });
    store->openDashboard();
    EXPECT_EQ(opened, (std::vector<std::string>{"dashboard", "dashboard"}));
    EXPECT_EQ(pendingChecks, 1);
}

}  // namespace
}  // namespace brimlet
