// The desktop controller against the real suite participant in a temporary suite folder, the
// intent router over both stores, and the application structure with its reopen handler.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include "app/desktop/DesktopController.hpp"
#include "app/desktop/IntentRouter.hpp"
#include "app/startup/BrimletApplication.hpp"
#include "tests/app/AppTestSupport.hpp"
#include "tests/support/LockProbe.hpp"
#include "tests/support/TempFolder.hpp"
#include "tests/ui/FakeHotKeys.hpp"

namespace brimlet {
namespace {

using namespace std::chrono_literals;
using kestrow::epochSeconds;
using kestrow::Seconds;

using kestrow::InMemoryUserDefaults;
using kestrow::suite::GlanceRecord;
using kestrow::suite::GlanceState;
using kestrow::suite::GlanceStore;
using kestrow::suite::SuiteApp;
using kestrow::suite::SuiteFolder;
using kestrow::suite::SuiteParticipant;
using kestrow::testing::TempFolder;
using testing::StoreRig;

struct RecordingFloating final : FloatingMonitorController {
    int syncs = 0;
    bool suppressed = false;
    void sync() override { ++syncs; }
    void setSuppressed(bool value) override { suppressed = value; }
    bool isSuppressed() const override { return suppressed; }
};

struct RecordingDock final : DockBadgeController {
    int refreshes = 0;
    void refresh() override { ++refreshes; }
};

// Another member of the suite, as its record in the folder shows it.
void writeMember(const SuiteFolder& folder, kestrow::MainLoop& loop, GlanceState state) {
    const GlanceRecord record(SuiteApp::corvane, false, state, epochSeconds(loop.wallClock()), 10,
                              kestrow::suite::GlanceLevel::ok, {});
    ASSERT_TRUE(GlanceStore{folder}.write(record).ok());
}

using kestrow::testing::lockIsFree;

struct DesktopRig : ::testing::Test {
    TempFolder temp;
    StoreRig rig;
    SuiteFolder folder{temp / "suite"};
    InMemoryUserDefaults monitorDefaults, suiteDefaults;
    kestrow::suite::testing::FakeHotKeys keys;
    kestrow::suite::HotKeyCenter center{keys, rig.loop};
    std::unique_ptr<SuiteParticipant> participant;
    std::unique_ptr<ParticipantLink> link;
    std::unique_ptr<MonitorStore> store;
    std::unique_ptr<DesktopController> desktop;
    RecordingFloating* floating = nullptr;
    RecordingDock* dock = nullptr;
    int ticks = 0;

    void SetUp() override {
        testing::idleSettings(monitorDefaults);
        SuiteParticipant::Options options;
        options.observeSystem = false;
        participant =
            std::make_unique<SuiteParticipant>(SuiteApp::brimlet, std::vector<SuiteFolder>{folder}, suiteDefaults,
                                               kestrow::suite::SuiteStatusItemFactory{}, rig.loop, options);
        link = std::make_unique<ParticipantLink>(*participant, rig.loop);
        store = rig.makeStore(monitorDefaults);
        auto f = std::make_unique<RecordingFloating>();
        auto d = std::make_unique<RecordingDock>();
        floating = f.get();
        dock = d.get();
        desktop = std::make_unique<DesktopController>(rig.loop, *store, *link, std::move(f), std::move(d), &center);
        auto counting = store->onTick;
        store->onTick = [this, counting] {
            ++ticks;
            counting();
        };
    }
    void TearDown() override {
        desktop.reset();
        store.reset();
        link.reset();
        participant.reset();
    }
    void folderChanged() {
        rig.loop.folderChanged(folder.glancesURL());
        rig.loop.runPending();
    }
};

TEST_F(DesktopRig, TheHotKeyExistsExactlyWhileTheSuiteIsInactive) {
    rig.loop.runPending();
    EXPECT_FALSE(participant->isActive());
    ASSERT_TRUE(desktop->hotKey());
    EXPECT_TRUE(desktop->hotKey()->isRegistered());
    EXPECT_EQ(keys.held, (std::set<std::pair<std::uint32_t, std::uint32_t>>{{46, 6144}}));
    EXPECT_FALSE(floating->suppressed);
    EXPECT_GE(floating->syncs, 1);  // the first sync runs once the loop turns

    // The shortcut toggles the floating monitor through the store, which saves it.
    const int syncsBefore = floating->syncs;
    EXPECT_TRUE(keys.press(kestrow::suite::HotKeyCenter::signature, desktop->hotKey()->id()));
    rig.loop.runPending();
    EXPECT_TRUE(store->floatingVisible());
    EXPECT_EQ(monitorDefaults.boolean("floating.visible"), true);
    EXPECT_EQ(floating->syncs, syncsBefore + 1);

    // A second member turns the suite active: its shared bar replaces ours, the host owns the keys.
    writeMember(folder, rig.loop, GlanceState::running);
    folderChanged();
    EXPECT_TRUE(participant->isActive());
    EXPECT_FALSE(desktop->hotKey());
    EXPECT_TRUE(keys.held.empty());
    EXPECT_TRUE(floating->suppressed);
    EXPECT_EQ(floating->syncs, syncsBefore + 2);  // once for all that changed together

    // The suite's later news (a renewed record, the lock won or not) leaves the monitor alone.
    writeMember(folder, rig.loop, GlanceState::running);
    folderChanged();
    EXPECT_TRUE(participant->isActive());
    EXPECT_EQ(floating->syncs, syncsBefore + 2);

    // The member stops; once the suite has been below two members for its delay, ours come back.
    writeMember(folder, rig.loop, GlanceState::stopped);
    folderChanged();
    EXPECT_TRUE(participant->isActive());
    rig.loop.advance(kestrow::suite::SuiteStateMachine::offDelay + 5s);  // the next timer tick after the delay
    EXPECT_FALSE(participant->isActive());
    ASSERT_TRUE(desktop->hotKey());
    EXPECT_TRUE(desktop->hotKey()->isRegistered());
    EXPECT_FALSE(floating->suppressed);
}

// The suite shortcut changes hands inside the one evaluation that turns the suite on or off: ours
// goes before the host that takes it is made, and comes back once that host is gone.
TEST_F(DesktopRig, TheShortcutPassesToTheHostAndBackWithinOneTurn) {
    desktop.reset();
    link.reset();
    participant.reset();
    kestrow::suite::SuiteStatusItemFactory factory;
    factory.hotKeys = &center;
    SuiteParticipant::Options options;
    options.observeSystem = false;
    participant = std::make_unique<SuiteParticipant>(SuiteApp::brimlet, std::vector<SuiteFolder>{folder}, suiteDefaults,
                                                     factory, rig.loop, options);
    link = std::make_unique<ParticipantLink>(*participant, rig.loop);
    desktop = std::make_unique<DesktopController>(rig.loop, *store, *link, std::make_unique<RecordingFloating>(),
                                                  std::make_unique<RecordingDock>(), &center);
    // Alone, with the host lock already won: the monitor holds the keys.
    ASSERT_TRUE(rig.loop.runUntil([&] { return participant->lock() && participant->lock()->isHeld(); }, 5s));
    ASSERT_TRUE(desktop->hotKey() && desktop->hotKey()->isRegistered());

    // A second member: the suite turns active and this process hosts in the same evaluation.
    writeMember(folder, rig.loop, GlanceState::running);
    rig.loop.folderChanged(folder.glancesURL());
    rig.loop.runPending();
    ASSERT_TRUE(participant->isHost());
    ASSERT_NE(participant->host(), nullptr);
    EXPECT_TRUE(participant->host()->hotKeyRegistered());
    EXPECT_FALSE(desktop->hotKey());
    EXPECT_EQ(keys.held, (std::set<std::pair<std::uint32_t, std::uint32_t>>{{46, 6144}}));

    // The member stops: the host goes with the suite and the monitor takes the keys back.
    writeMember(folder, rig.loop, GlanceState::stopped);
    rig.loop.folderChanged(folder.glancesURL());
    rig.loop.advance(kestrow::suite::SuiteStateMachine::offDelay + 5s);
    EXPECT_FALSE(participant->isActive());
    EXPECT_EQ(participant->host(), nullptr);
    ASSERT_TRUE(desktop->hotKey());
    EXPECT_TRUE(desktop->hotKey()->isRegistered());
    EXPECT_EQ(keys.held.size(), 1u);
}

TEST_F(DesktopRig, EachNewGlanceIsPublishedAsTheSuiteRecord) {
    ASSERT_TRUE(rig.settle([&] { return ticks == 1; }));
    EXPECT_GE(dock->refreshes, 1);
    const auto read = GlanceStore{folder}.read(SuiteApp::brimlet);
    ASSERT_TRUE(read && read->ok()) << (read ? read->status().message() : "no record");
    const GlanceRecord& record = read->value();
    EXPECT_EQ(record.state, GlanceState::running);
    EXPECT_EQ(record.ttl, 10);
    EXPECT_EQ(record.level, kestrow::suite::GlanceLevel::ok);
    ASSERT_EQ(record.metrics.size(), 2u);  // no CPU figure was readable: no CPU metric
    EXPECT_EQ(record.metrics[0].id, "mem");
    EXPECT_EQ(record.metrics[0].value, kestrow::suite::MetricValue(50.0));
    EXPECT_EQ(record.metrics[1].id, "disk");
    EXPECT_EQ(record.metrics[1].unit, "GB");
    EXPECT_EQ(record.metrics[1].value, kestrow::suite::MetricValue(500.0));

    // Critical pressure raises the record's level and the memory metric's.
    rig.system.pressureReading = std::int32_t{4};
    store->surfaceAppeared();
    rig.loop.advance(MonitorStore::liveInterval);
    ASSERT_TRUE(rig.settle([&] { return ticks == 2; }));
    const GlanceRecord updated = GlanceStore{folder}.read(SuiteApp::brimlet)->value();
    EXPECT_EQ(updated.level, kestrow::suite::GlanceLevel::alert);
    EXPECT_EQ(updated.metrics[0].level, kestrow::suite::GlanceLevel::alert);
}

struct RouterRig : ::testing::Test {
    TempFolder temp;
    StoreRig rig;
    InMemoryUserDefaults defaults;
    testing::FakeProcessReading otherProcesses;
    testing::FakeSystemReading otherSystem;
    kestrow::ContinuousTime uptime{100s};
    kestrow::Date now{};
    std::vector<BrimletWindows::Window> windows;
    std::shared_ptr<MonitorStore> store;
    std::shared_ptr<CleanupStore> cleanup;
    std::unique_ptr<IntentRouter> router;
    std::vector<std::string> opened;

    void SetUp() override {
        otherProcesses.add(9, 1 << 20, "fresh-engine");
        store = rig.makeStore(defaults);
        cleanup = std::make_shared<CleanupStore>(rig.loop, temp / "home");
        router = std::make_unique<IntentRouter>(
            IntentRouter::Environment{[this] { return uptime; }, [this] { return now; }, [this] { return windows; },
                                      [this] { return std::make_unique<MonitorEngine>(otherProcesses, otherSystem); }});
        router->link(store, cleanup);
    }
    void giveOpener() {
        store->adoptOpenWindow([this](std::string_view id) { opened.emplace_back(id); });
    }
};

TEST_F(RouterRig, TopAppsComeFromTheStoreOnlyWhileItsSnapshotIsFresh) {
    ASSERT_TRUE(rig.settle([&] { return store->snapshot().has_value(); }));
    const kestrow::Date taken = store->snapshot()->date;
    using std::chrono::milliseconds;
    struct Case {
        milliseconds age;
        bool fromStore;
    };
    for (const Case c : {Case{milliseconds(0), true}, Case{milliseconds(2000), true}, Case{milliseconds(2100), false},
                         Case{milliseconds(-500), false}}) {
        now = taken + c.age;
        const MonitorSnapshot snapshot = router->topAppsSnapshot().get();
        EXPECT_EQ(snapshot.date == taken, c.fromStore) << c.age.count();
        EXPECT_EQ(snapshot.apps.front().name, c.fromStore ? "init" : "fresh-engine") << c.age.count();
    }
    store.reset();  // gone: the answer is never refused
    now = taken;
    EXPECT_EQ(router->topAppsSnapshot().get().apps.front().name, "fresh-engine");
}

TEST_F(RouterRig, OpeningCleanupResetsOnlyAnIdleRunWhoseWindowIsAway) {
    EXPECT_FALSE(router->openNow(IntentRouter::Target::cleanup));  // no view has handed over the opener
    giveOpener();
    ASSERT_TRUE(cleanup->start());
    ASSERT_TRUE(rig.loop.runUntil([&] { return cleanup->phase() == CleanupPhase::ready; }, 10s));
    struct Case {
        std::vector<BrimletWindows::Window> windows;
        CleanupPhase resultingPhase;
    };
    const std::vector<Case> cases = {
        {{{"cleanup-1", false, true}}, CleanupPhase::ready},  // miniaturised: the user's work, untouched
        {{{"cleanups", true, false}}, CleanupPhase::idle},    // another window: starts over
    };
    for (const Case& c : cases) {
        windows = c.windows;
        opened.clear();
        EXPECT_TRUE(router->openNow(IntentRouter::Target::cleanup));
        EXPECT_EQ(cleanup->phase(), c.resultingPhase);
        EXPECT_EQ(opened, std::vector<std::string>{"cleanup"});
    }
    // A run under way is brought forward as it is.
    windows.clear();
    ASSERT_TRUE(cleanup->start());
    EXPECT_TRUE(router->openNow(IntentRouter::Target::cleanup));
    EXPECT_EQ(cleanup->phase(), CleanupPhase::measuring);
}

TEST_F(RouterRig, ACleanupOpenWaitsForTheOpenerAndMarksItsRequestTime) {
    router->openCleanup();
    EXPECT_TRUE(router->pendingCleanupOpen());
    EXPECT_EQ(router->lastRequest().lastRequest, kestrow::ContinuousTime(100s));
    EXPECT_TRUE(opened.empty());
    uptime = kestrow::ContinuousTime(160s);
    giveOpener();
    EXPECT_FALSE(router->pendingCleanupOpen());
    EXPECT_EQ(opened, std::vector<std::string>{"cleanup"});
    EXPECT_EQ(router->lastRequest().lastRequest,
              kestrow::ContinuousTime(160s));  // the reopen the window may cause is suppressed
    giveOpener();
    EXPECT_EQ(opened.size(), 1u);
}

TEST(BrimletApplication, ReopensHostingAndAStoppedRecordAtTheEnd) {
    TempFolder temp;
    StoreRig rig;
    SuiteFolder folder(temp / "suite");
    InMemoryUserDefaults monitorDefaults, suiteDefaults;
    BrimletPlatform platform = testing::testPlatform(rig, monitorDefaults, suiteDefaults, folder, temp / "home",
                                                     {[&rig] { return rig.loop.now(); }, {}, {}, {}});
    platform.makeFloating = [](MonitorStore&) { return std::make_unique<RecordingFloating>(); };
    platform.makeDock = [](MonitorStore&) { return std::make_unique<RecordingDock>(); };
    BrimletApplication app(std::move(platform));
    ASSERT_TRUE(rig.settle([&] { return app.monitor().snapshot().has_value(); }));
    std::vector<std::string> opened;
    app.monitor().adoptOpenWindow([&](std::string_view id) { opened.emplace_back(id); });

    // Alone, the app shows its own icon: a reopen leaves the dashboard closed.
    app.handleReopen();
    rig.loop.advance(Seconds(0.5));
    EXPECT_TRUE(opened.empty());

    // The user dragged the icon out of the menu bar: a reopen brings it back (the way to Settings
    // and Quit) instead of opening a window.
    app.participant().setShowsOwnIcon(false);
    EXPECT_FALSE(app.participant().showsOwnIcon());
    app.handleReopen();
    rig.loop.advance(Seconds(0.5));
    EXPECT_TRUE(app.participant().showsOwnIcon());
    EXPECT_TRUE(opened.empty());

    // The menu bar item follows the participant through the application's link.
    std::vector<bool> ownIconSeen;
    const kestrow::MainLoop::Token following =
        app.suite().observe([&] { ownIconSeen.push_back(app.suite().showsOwnIcon()); });

    // With a second member the suite is active and this app, able to host, takes the lock and hosts.
    writeMember(folder, rig.loop, GlanceState::running);
    rig.loop.folderChanged(folder.glancesURL());
    ASSERT_TRUE(rig.loop.runUntil([&] { return app.participant().isHost(); }, 5s));
    EXPECT_TRUE(GlanceStore{folder}.read(SuiteApp::brimlet)->value().hosting);
    EXPECT_FALSE(app.participant().showsOwnIcon());
    ASSERT_TRUE(rig.loop.runUntil([&] { return !ownIconSeen.empty() && !ownIconSeen.back(); }, 5s));

    // A reopen right after an intent request is the intent's side effect; a later one opens.
    app.router().openCleanup();
    ASSERT_EQ(opened, std::vector<std::string>{"cleanup"});
    rig.loop.advance(Seconds(0.3));
    app.handleReopen();
    rig.loop.advance(Seconds(0.5));
    EXPECT_EQ(opened.size(), 1u);
    rig.loop.advance(1s);
    app.handleReopen();
    rig.loop.advance(Seconds(0.5));
    EXPECT_EQ(opened, (std::vector<std::string>{"cleanup", "dashboard"}));

    app.shutdown();
    EXPECT_EQ(GlanceStore{folder}.read(SuiteApp::brimlet)->value().state, GlanceState::stopped);
    EXPECT_TRUE(lockIsFree(folder.lockURL()));
}

}  // namespace
}  // namespace brimlet
