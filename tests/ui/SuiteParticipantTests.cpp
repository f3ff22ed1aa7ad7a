// The participant on the manual loop: time moves only when a test says so, records are real files in
// a temporary suite folder, and the host lock is the real one.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "FakeHotKeys.hpp"
#include "suite/ui/SuiteParticipant.hpp"
#include "tests/support/ManualMainLoop.hpp"
#include "tests/support/TempFolder.hpp"

namespace kestrow::suite {
namespace {

using Property = SuiteParticipant::Property;
using namespace std::chrono_literals;

// What the fake status items saw, across every item the factory made.
struct ItemLog {
    int made = 0;
    int withdrawn = 0;
    std::vector<std::pair<SuiteValues, GlanceLevel>> updates;
    std::vector<std::optional<double>> preferredAtMake;
    std::optional<double> saved;
    bool visible = true;
};

class FakeItem final : public SuiteStatusItem {
public:
    explicit FakeItem(ItemLog& log) : log_(log) {}
    bool isVisible() const override { return log_.visible; }
    void update(const SuiteValues& values, GlanceLevel worst) override { log_.updates.emplace_back(values, worst); }
    void withdraw() override { ++log_.withdrawn; }
    std::optional<double> savedPosition() const override { return log_.saved; }

private:
    ItemLog& log_;
};

// Lines written to standard error (where the log goes on Linux) while it lives.
class CapturedLog {
public:
    CapturedLog() {
        std::fflush(stderr);
        saved_ = ::dup(STDERR_FILENO);
        const int fd = ::open(file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(fd, STDERR_FILENO);
        ::close(fd);
    }
    ~CapturedLog() { restore(); }
    std::string text() {
        std::ifstream in(file_);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    int count(const std::string& needle) {
        const std::string all = text();
        int n = 0;
        for (std::size_t at = all.find(needle); at != std::string::npos; at = all.find(needle, at + 1)) ++n;
        return n;
    }

private:
    void restore() {
        if (saved_ < 0) return;
        ::dup2(saved_, STDERR_FILENO);
        ::close(saved_);
        saved_ = -1;
    }
    kestrow::testing::TempFolder temp_;
    std::string file_ = temp_ / "log.txt";
    int saved_ = -1;
};

class Participant : public ::testing::Test {
protected:
    kestrow::testing::TempFolder temp;
    SuiteFolder folder{temp / "Suite"};
    ManualMainLoop loop;
    InMemoryUserDefaults defaults;
    ItemLog items;
    std::vector<Property> changes;

    // Other members prepare the folder as this one would.
    void SetUp() override { ASSERT_TRUE(folder.prepare().ok()); }

    SuiteStatusItemFactory factory(HotKeyCenter* hotKeys = nullptr) {
        SuiteStatusItemFactory f;
        f.make = [this](SuiteHost& host) {
            ++items.made;
            items.preferredAtMake.push_back(host.preferredPosition());
            return std::make_unique<FakeItem>(items);
        };
        f.hotKeys = hotKeys;
        return f;
    }

    // Every folder event is read at once here, so a test's records count the moment it writes
    // them; the reading interval has tests of its own.
    static SuiteParticipant::Options immediate(SuiteParticipant::Options options = {}) {
        options.rereadInterval = Seconds::zero();
        return options;
    }

    std::unique_ptr<SuiteParticipant> make(SuiteApp app, SuiteParticipant::Options options = immediate(),
                                           HotKeyCenter* hotKeys = nullptr) {
        auto p = std::make_unique<SuiteParticipant>(app, std::vector<SuiteFolder>{folder}, defaults, factory(hotKeys),
                                                    loop, std::move(options));
        p->onChange([this](Property property) { changes.push_back(property); });
        return p;
    }

    // Another member's record, written the way that member would write it.
    void other(SuiteApp app, bool hosting = false, GlanceLevel level = GlanceLevel::ok,
               GlanceState state = GlanceState::running, std::int64_t ttl = 10) {
        const GlanceRecord record(app, hosting, state, epochSeconds(loop.wallClock()), ttl, level,
                                  {GlanceMetric{"load", "Load", 42.5, "%", level}});
        ASSERT_TRUE(GlanceStore{folder}.write(record).ok());
        loop.folderChanged(folder.glancesURL());
    }

    std::optional<GlanceRecord> onDisk(SuiteApp app) {
        const auto result = GlanceStore{folder}.read(app);
        if (!result || result->failed()) return std::nullopt;
        return result->value();
    }

    // Any event in the folder makes the participant look at once, between its ticks.
    void look() { loop.folderChanged(folder.glancesURL()); }

    static std::vector<GlanceMetric> metrics(double value) { return {GlanceMetric{"mem", "Memory", value, "%", {}}}; }
};

TEST_F(Participant, TimerIntervalAndToleranceFollowTheTtl) {
    struct Case {
        std::int64_t ttl;
        double interval;
    };
    const Case cases[] = {{3, 1.0}, {10, 4.5}, {60, 5.0}, {1, 1.0}, {100, 5.0}, {11, 5.0}, {6, 2.5}};
    for (const Case& c : cases) {
        EXPECT_DOUBLE_EQ(SuiteParticipant::timerInterval(c.ttl).count(), c.interval) << c.ttl;
        EXPECT_DOUBLE_EQ(SuiteParticipant::timerTolerance(c.ttl).count(), c.interval / 10) << c.ttl;
    }
    auto p = make(SuiteApp::corvane);
    for (const std::int64_t ttl : {3, 10, 60}) {
        p->publish(GlanceLevel::ok, metrics(10), ttl);
        const auto timers = loop.repeatingTimers();
        ASSERT_EQ(timers.size(), 1u) << "the timer is replaced, not added";
        EXPECT_DOUBLE_EQ(timers[0].interval.count(), SuiteParticipant::timerInterval(ttl).count());
        EXPECT_DOUBLE_EQ(timers[0].tolerance.count(), SuiteParticipant::timerInterval(ttl).count() / 10);
        EXPECT_EQ(onDisk(SuiteApp::corvane)->ttl, ttl);
    }
}

TEST_F(Participant, RenewsAnUnchangedRecordBeforeHalfItsTtlAndAChangedOneAtOnce) {
    for (const std::int64_t ttl : {3, 10, 60}) {
        auto p = make(SuiteApp::corvane);
        p->publish(GlanceLevel::ok, metrics(10), ttl);
        int writes = 1;
        double lastAt = onDisk(SuiteApp::corvane)->at;
        const double span = 120;
        for (int step = 0; step < 240; ++step) {
            loop.advance(Seconds(0.5));
            const double at = onDisk(SuiteApp::corvane)->at;
            if (at != lastAt) ++writes;
            lastAt = at;
            EXPECT_LT(epochSeconds(loop.wallClock()) - at, ttl * 0.5) << "ttl " << ttl << " at step " << step;
        }
        // At most once a tick; with a long ttl only every few ticks.
        const double ticks = span / SuiteParticipant::timerInterval(ttl).count();
        EXPECT_LE(writes, ticks + 1) << ttl;
        EXPECT_GE(writes, span / (ttl * 0.5)) << ttl;
        if (ttl == 60) {
            EXPECT_LT(writes, ticks / 2);
        }

        p->publish(GlanceLevel::notice, metrics(11), ttl);
        EXPECT_EQ(onDisk(SuiteApp::corvane)->at, epochSeconds(loop.wallClock()));
        EXPECT_EQ(onDisk(SuiteApp::corvane)->level, GlanceLevel::notice);
        p->shutdown();
    }
}

TEST_F(Participant, CountsItsOwnProvisionalRecordAtOnce) {
    other(SuiteApp::fennick);
    auto p = make(SuiteApp::corvane);
    EXPECT_FALSE(onDisk(SuiteApp::corvane)) << "nothing published yet";
    EXPECT_TRUE(p->isActive());
    ASSERT_EQ(p->rows().size(), 2u);
    EXPECT_EQ(p->rows()[0].app(), SuiteApp::corvane);
    EXPECT_TRUE(p->rows()[0].isRunning());
    EXPECT_TRUE(p->rows()[0].record()->metrics.empty());
    EXPECT_EQ(p->rows()[1].app(), SuiteApp::fennick);

    // A member that does not participate never counts, not even itself; corvane's provisional
    // record lives only inside corvane.
    auto hidden = make(SuiteApp::dismel);
    EXPECT_FALSE(hidden->isActive());
    ASSERT_EQ(hidden->rows().size(), 1u);
    EXPECT_EQ(hidden->rows()[0].app(), SuiteApp::fennick);
}

TEST_F(Participant, ActivationHostMissingAndTheOffDelay) {
    auto p = make(SuiteApp::corvane);
    EXPECT_FALSE(p->isActive());
    EXPECT_TRUE(p->showsOwnIcon());

    other(SuiteApp::fennick, false, GlanceLevel::alert);
    EXPECT_TRUE(p->isActive());
    EXPECT_EQ(p->worstLevel(), GlanceLevel::alert);
    ASSERT_EQ(p->menuBarValues().size(), 1u);
    EXPECT_EQ(p->menuBarValues()[0].first, (MetricRef{SuiteApp::fennick, "load"}));
    EXPECT_FALSE(p->showsOwnIcon()) << "a host has 5 s to speak";
    EXPECT_EQ(std::count(changes.begin(), changes.end(), Property::isActive), 1);

    loop.advance(5s);
    look();
    EXPECT_FALSE(p->showsOwnIcon()) << "5 s is not over 5 s";
    loop.advance(Seconds(0.2));
    look();
    EXPECT_TRUE(p->showsOwnIcon()) << "no host for over 5 s";
    EXPECT_EQ(changes.back(), Property::showsOwnIcon);

    other(SuiteApp::fennick, true, GlanceLevel::notice);
    EXPECT_FALSE(p->showsOwnIcon()) << "the host spoke";
    EXPECT_EQ(p->worstLevel(), GlanceLevel::notice);

    // Fennick falls silent: its record expires 10 s after it was written, and the suite stays
    // active for 10 s more before it turns off.
    const double written = epochSeconds(loop.wallClock());
    loop.advance(Seconds(10.1));
    look();
    EXPECT_TRUE(p->isActive());
    EXPECT_FALSE(p->rows()[1].isRunning());
    EXPECT_EQ(p->worstLevel(), GlanceLevel::ok);
    EXPECT_TRUE(p->menuBarValues().empty());
    loop.advance(Seconds(written + 10.1 + 9.9 - epochSeconds(loop.wallClock())));
    look();
    EXPECT_TRUE(p->isActive());
    loop.advance(Seconds(0.2));
    look();
    EXPECT_FALSE(p->isActive());
    EXPECT_TRUE(p->showsOwnIcon());

    // What did not change is not reported again.
    loop.advance(20s);
    EXPECT_EQ(std::count(changes.begin(), changes.end(), Property::isActive), 2);
    EXPECT_EQ(std::count(changes.begin(), changes.end(), Property::worstLevel), 3);  // alert, notice, ok
}

TEST_F(Participant, HostsWhenTheLockArrivesAndStopsWhenTheSuiteGoesInactive) {
    testing::FakeHotKeys keys;
    HotKeyCenter center(keys, loop);
    other(SuiteApp::corvane);
    auto p = make(SuiteApp::brimlet, immediate(), &center);
    p->publish(GlanceLevel::ok, metrics(20), 10);
    ASSERT_TRUE(loop.runUntil([&] { return p->isHost(); }, 5s)) << "the lock never arrived";
    EXPECT_EQ(items.made, 1);
    ASSERT_FALSE(items.updates.empty());
    EXPECT_EQ(items.updates.back().first, p->menuBarValues());
    EXPECT_TRUE(onDisk(SuiteApp::brimlet)->hosting) << "the others learn it from the record at once";
    ASSERT_NE(p->host(), nullptr);
    ASSERT_NE(p->host()->hotKey(), nullptr);
    EXPECT_TRUE(p->host()->hotKey()->isRegistered());

    // The shortcut shows the floating bar and remembers it in the shared settings.
    EXPECT_TRUE(keys.press(HotKeyCenter::signature, p->host()->hotKey()->id()));
    loop.runPending();
    EXPECT_TRUE(p->settings().floatingVisible);
    loop.advance(SuiteParticipant::settingsSaveDelay);
    EXPECT_TRUE(SuiteSettings::read(folder).floatingVisible);

    // Corvane stops: a stopped record counts at once, and 10 s later hosting ends.
    other(SuiteApp::corvane, false, GlanceLevel::ok, GlanceState::stopped);
    EXPECT_TRUE(p->isHost());
    EXPECT_FALSE(p->rows()[1].isRunning());
    loop.advance(Seconds(9.9));
    EXPECT_TRUE(p->isHost());
    loop.advance(5s);
    EXPECT_FALSE(p->isHost());
    EXPECT_EQ(items.withdrawn, 1);
    EXPECT_FALSE(onDisk(SuiteApp::brimlet)->hosting);
    EXPECT_TRUE(keys.held.empty()) << "the shortcut went with the host";
    EXPECT_TRUE(p->lock()->isHeld()) << "the lock is kept for the next time";

    other(SuiteApp::corvane);
    EXPECT_TRUE(p->isHost());
    EXPECT_EQ(items.made, 2);
}

TEST_F(Participant, ANewHostTakesThePositionAndPlaceTheLastOneSaved) {
    other(SuiteApp::corvane);
    auto p = make(SuiteApp::brimlet);
    p->publish(GlanceLevel::ok, metrics(20), 10);
    ASSERT_TRUE(loop.runUntil([&] { return p->isHost(); }, 5s));
    EXPECT_EQ(items.preferredAtMake.back(), std::nullopt);

    // The user drags the item; the status bar saves where; the next tick shares it.
    items.saved = 812;
    loop.advance(SuiteParticipant::timerInterval(10));
    EXPECT_EQ(SuiteSettings::read(folder).statusItemPosition, 812.0);
    p->floatingBarMoved({300, 700});
    p->floatingBarMoved({310, 705});
    EXPECT_FALSE(SuiteSettings::read(folder).floatingTopLeft) << "saved soon, not on every move";
    loop.advance(SuiteParticipant::settingsSaveDelay);
    EXPECT_EQ(SuiteSettings::read(folder).floatingTopLeft, (std::pair<double, double>{310, 705}));
    p->shutdown();

    // Fennick hosts next: it reads the settings afresh and puts its item at the same place.
    auto q = make(SuiteApp::fennick);
    q->publish(GlanceLevel::ok, metrics(20), 10);
    ASSERT_TRUE(loop.runUntil([&] { return q->isHost(); }, 5s));
    EXPECT_EQ(items.preferredAtMake.back(), 812.0);
    EXPECT_EQ(q->settings().floatingTopLeft, (std::pair<double, double>{310, 705}));
}

// What the floating bar's panel was asked to do, in order.
class FakePanel final : public SuiteFloatingPanel {
public:
    explicit FakePanel(std::vector<std::string>& calls) : calls_(calls) {}
    void show() override { visible_ = true, calls_.push_back("show"); }
    void hide() override { visible_ = false, calls_.push_back("hide"); }
    bool isVisible() const override { return visible_; }
    void setExpanded(bool expanded) override { calls_.push_back(expanded ? "expand" : "collapse"); }
    void update() override {}
    void tearDown() override { calls_.push_back("tearDown"); }

private:
    std::vector<std::string>& calls_;
    bool visible_ = false;
};

TEST_F(Participant, TheBarsExpansionIsSharedAndTheNextHostOpensItAsLeft) {
    std::vector<std::string> calls;
    SuiteStatusItemFactory withBar = factory();
    withBar.makeFloatingPanel = [&](SuiteHost&) { return std::make_unique<FakePanel>(calls); };
    other(SuiteApp::corvane);
    auto p = std::make_unique<SuiteParticipant>(SuiteApp::brimlet, std::vector<SuiteFolder>{folder}, defaults, withBar,
                                                loop, immediate());
    p->publish(GlanceLevel::ok, metrics(20), 10);
    ASSERT_TRUE(loop.runUntil([&] { return p->isHost(); }, 5s));
    EXPECT_TRUE(calls.empty()) << "the bar stays hidden until the user asks for it";

    struct Step {
        const char* what;
        std::function<void(SuiteHost&)> act;
        std::vector<std::string> calls;
        bool expandedOnDisk;
    };
    const Step steps[] = {
        {"shown collapsed", [](SuiteHost& h) { h.setFloatingVisible(true); }, {"collapse", "show"}, false},
        {"expanded", [](SuiteHost& h) { h.setFloatingExpanded(true); }, {"expand"}, true},
        {"hidden, still expanded", [](SuiteHost& h) { h.setFloatingVisible(false); }, {"hide"}, true},
        {"shown again as it was left", [](SuiteHost& h) { h.setFloatingVisible(true); }, {"expand", "show"}, true},
        {"collapsed", [](SuiteHost& h) { h.setFloatingExpanded(false); }, {"collapse"}, false},
    };
    for (const Step& step : steps) {
        calls.clear();
        step.act(*p->host());
        EXPECT_EQ(calls, step.calls) << step.what;
        loop.advance(SuiteParticipant::settingsSaveDelay);
        EXPECT_EQ(SuiteSettings::read(folder).floatingExpanded, step.expandedOnDisk) << step.what;
    }

    p->host()->setFloatingExpanded(true);
    p->shutdown();
    EXPECT_TRUE(SuiteSettings::read(folder).floatingExpanded) << "a pending save is not lost at the end";
    calls.clear();
    auto q = std::make_unique<SuiteParticipant>(SuiteApp::fennick, std::vector<SuiteFolder>{folder}, defaults, withBar,
                                                loop, immediate());
    q->publish(GlanceLevel::ok, metrics(20), 10);
    ASSERT_TRUE(loop.runUntil([&] { return q->isHost(); }, 5s));
    EXPECT_EQ(calls, (std::vector<std::string>{"expand", "show"}));
}

TEST_F(Participant, KeepsTheSuiteActiveForTenSecondsAfterWake) {
    auto p = make(SuiteApp::corvane);
    p->publish(GlanceLevel::ok, metrics(1), 10);
    other(SuiteApp::fennick);
    ASSERT_TRUE(p->isActive());

    loop.sleep(3600s);  // fennick's record is an hour old now
    const double woke = epochSeconds(loop.wallClock());
    EXPECT_EQ(onDisk(SuiteApp::corvane)->at, woke) << "written at once on wake";
    EXPECT_TRUE(p->isActive());
    loop.advance(Seconds(9.9));
    look();
    EXPECT_TRUE(p->isActive()) << "wake grace";
    loop.advance(Seconds(0.1));
    look();
    loop.advance(Seconds(9.9));
    look();
    EXPECT_TRUE(p->isActive()) << "then the ordinary 10 s off delay";
    loop.advance(Seconds(0.2));
    look();
    EXPECT_FALSE(p->isActive());

    // Without the system observer a sleep is just a long pause.
    SuiteParticipant::Options unobserved = immediate();
    unobserved.observeSystem = false;
    auto q = make(SuiteApp::jessap, unobserved);
    loop.sleep(3600s);
    EXPECT_FALSE(q->stateMachine().wakeUntil.has_value());
    EXPECT_EQ(p->stateMachine().wakeUntil, loop.wallClock() + 10s);
}

TEST_F(Participant, ShutdownWritesStoppedOnceSavesPendingSettingsAndReleasesTheLock) {
    other(SuiteApp::corvane);
    auto p = make(SuiteApp::brimlet);
    p->publish(GlanceLevel::notice, metrics(30), 10);
    ASSERT_TRUE(loop.runUntil([&] { return p->isHost(); }, 5s));
    p->floatingBarMoved({50, 600});

    p->shutdown();
    const auto last = onDisk(SuiteApp::brimlet);
    ASSERT_TRUE(last);
    EXPECT_EQ(last->state, GlanceState::stopped);
    EXPECT_FALSE(last->hosting);
    EXPECT_EQ(last->metrics, metrics(30));
    EXPECT_FALSE(p->isHost());
    EXPECT_EQ(items.withdrawn, 1);
    EXPECT_EQ(SuiteSettings::read(folder).floatingTopLeft, (std::pair<double, double>{50, 600}));
    EXPECT_TRUE(loop.repeatingTimers().empty());
    EXPECT_TRUE(loop.watchedFolders().empty());

    // Exactly once: neither a second call, nor the timer, nor a publish, nor the destructor writes.
    struct stat before {};
    ASSERT_EQ(::stat(folder.glanceURL(SuiteApp::brimlet).c_str(), &before), 0);
    p->shutdown();
    p->publish(GlanceLevel::ok, metrics(1), 10);
    loop.advance(30s);
    p.reset();
    struct stat after {};
    ASSERT_EQ(::stat(folder.glanceURL(SuiteApp::brimlet).c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino) << "an atomic write would have replaced the file";

    // The lock is free: another contender gets it at once.
    HostLock next(folder.lockURL());
    std::atomic<bool> acquired{false};
    next.start([&] { acquired = true; });
    EXPECT_TRUE(loop.runUntil([&] { return acquired.load(); }, 5s));
    next.release();
}

TEST_F(Participant, SuspendedPublishingStopsWritesAndHosting) {
    other(SuiteApp::corvane);
    auto p = make(SuiteApp::brimlet);
    p->publish(GlanceLevel::ok, metrics(5), 10);
    ASSERT_TRUE(loop.runUntil([&] { return p->isHost(); }, 5s));
    const double at = onDisk(SuiteApp::brimlet)->at;
    p->suspendPublishing();
    EXPECT_FALSE(p->isHost());
    p->publish(GlanceLevel::alert, metrics(6), 10);
    loop.advance(30s);
    EXPECT_EQ(onDisk(SuiteApp::brimlet)->at, at);
    EXPECT_FALSE(p->isActive()) << "its stale record no longer counts, nor a provisional one";
    p->shutdown();
    EXPECT_EQ(onDisk(SuiteApp::brimlet)->state, GlanceState::running) << "a suspended member writes nothing more";
}

TEST_F(Participant, OwnIconFollowsTheUsersWishTheRulesAndARemoval) {
    other(SuiteApp::fennick, true);
    auto p = make(SuiteApp::corvane);
    EXPECT_FALSE(p->showsOwnIcon());
    ASSERT_TRUE(defaults.set("KestrowSuite.showOwnIcon", JsonValue(true)).ok());
    EXPECT_TRUE(p->showsOwnIcon());
    EXPECT_FALSE(p->handleReopen()) << "nothing to bring back";

    p->setShowsOwnIcon(false);  // the user dragged it out of the menu bar
    EXPECT_FALSE(p->showsOwnIcon());
    EXPECT_EQ(changes.back(), Property::showsOwnIcon);
    EXPECT_TRUE(p->handleReopen());
    EXPECT_TRUE(p->showsOwnIcon());

    // Removed again, then asked for in the settings: the explicit choice brings it back.
    p->setShowsOwnIcon(false);
    EXPECT_FALSE(p->showsOwnIcon());
    changes.clear();
    ASSERT_TRUE(p->setOwnIconWanted(true).ok());
    EXPECT_TRUE(p->showsOwnIcon());
    EXPECT_EQ(changes.back(), Property::showsOwnIcon);
    EXPECT_FALSE(p->handleReopen()) << "nothing left to bring back";

    ASSERT_TRUE(defaults.set("KestrowSuite.showOwnIcon", JsonValue("yes")).ok());
    EXPECT_FALSE(p->showsOwnIcon()) << "an unreadable value reads as the default";
}

TEST_F(Participant, OwnIconSettingIsStoredAndHeardAtOnceOnlyWhenItChangesTheIcon) {
    other(SuiteApp::fennick, true);
    auto p = make(SuiteApp::corvane);
    ASSERT_FALSE(p->showsOwnIcon()) << "the suite shares one item";
    struct Step {
        bool wanted;
        bool shows;
        bool reported;  // observers heard of a change in what the menu bar shows
    };
    const Step steps[] = {{true, true, true}, {true, true, false}, {false, false, true}, {false, false, false}};
    for (const Step& step : steps) {
        changes.clear();
        ASSERT_TRUE(p->setOwnIconWanted(step.wanted).ok());
        EXPECT_EQ(p->ownIconWanted(), step.wanted);
        EXPECT_EQ(defaults.boolean("KestrowSuite.showOwnIcon"), step.wanted);
        EXPECT_EQ(p->showsOwnIcon(), step.shows);
        EXPECT_EQ(!changes.empty() && changes.back() == Property::showsOwnIcon, step.reported) << step.wanted;
    }
}

TEST_F(Participant, LogsEachProblemOnce) {
    CapturedLog log;
    // A folder below a regular file cannot be prepared; the participant goes on with the other.
    kestrow::testing::writeFile(temp / "file", "x");
    const SuiteFolder broken(temp / "file/Suite");
    SuiteParticipant::Options options = immediate();
    options.staleAfter = Seconds(3.0);
    SuiteParticipant p(SuiteApp::corvane, {broken, folder}, defaults, factory(), loop, options);
    EXPECT_EQ(p.folders(), std::vector<SuiteFolder>{folder});

    GlanceMetric tooLong{"mem", "A label far too long for the bar", 1.0, "%", {}};
    p.publish(GlanceLevel::ok, {tooLong}, 10);
    p.publish(GlanceLevel::ok, {tooLong}, 10);
    EXPECT_FALSE(onDisk(SuiteApp::corvane));

    p.publish(GlanceLevel::ok, metrics(1), 10);
    p.publish(GlanceLevel::ok, metrics(2), 10);

    // A folder in place of the record: every write fails the same way.
    ASSERT_EQ(::unlink(folder.glanceURL(SuiteApp::corvane).c_str()), 0);
    ASSERT_EQ(::mkdir(folder.glanceURL(SuiteApp::corvane).c_str(), 0700), 0);
    p.publish(GlanceLevel::ok, metrics(3), 10);
    p.publish(GlanceLevel::ok, metrics(4), 10);
    EXPECT_TRUE(p.lastWriteFailed());
    loop.advance(10s);

    ASSERT_EQ(::mkdir(folder.settingsURL().c_str(), 0700), 0);
    p.floatingBarMoved({1, 2});
    loop.advance(1s);
    p.floatingBarMoved({3, 4});
    loop.advance(1s);

    const std::string text = log.text();
    EXPECT_EQ(log.count("suite folder not usable: " + broken.url + "\n"), 1) << text;
    EXPECT_EQ(log.count("glance record not written: label: 1-16 scalars\n"), 1) << text;
    EXPECT_EQ(log.count("glance record not written: cannot replace (errno 21)\n"), 1) << text;
    // A folder in place of the settings file is a file that cannot be read: it is not saved over.
    EXPECT_EQ(log.count("suite settings not saved: settings.json could not be read (not a regular file); it is "
                        "kept as it is\n"),
              1)
        << text;
    EXPECT_EQ(log.count("the interval between two publishes (5.5 s) is longer than staleAfter (3 s): the numbers "
                        "blink\n"),
              1)
        << text;
}

TEST_F(Participant, ADuplicateShortcutIsLoggedOnceAndTheFirstKeepsWorking) {
    testing::FakeHotKeys keys;
    HotKeyCenter center(keys, loop);
    int ownToggles = 0;
    GlobalHotKey own(center, GlobalHotKey::keyCodeM, GlobalHotKey::controlOption, [&] { ++ownToggles; });
    ASSERT_TRUE(own.isRegistered());

    CapturedLog log;
    other(SuiteApp::corvane);
    auto p = make(SuiteApp::brimlet, immediate(), &center);
    ASSERT_TRUE(loop.runUntil([&] { return p->isHost(); }, 5s));
    EXPECT_FALSE(p->host()->hotKey()->isRegistered());
    // Hosting ends and begins again: still one line.
    other(SuiteApp::corvane, false, GlanceLevel::ok, GlanceState::stopped);
    loop.advance(15s);
    ASSERT_FALSE(p->isHost());
    other(SuiteApp::corvane);
    ASSERT_TRUE(p->isHost());
    EXPECT_EQ(log.count("the suite shortcut ⌃⌥M could not be registered: this app still holds the same keys (a "
                        "duplicate in one process)\n"),
              1)
        << log.text();

    EXPECT_TRUE(keys.press(HotKeyCenter::signature, own.id()));
    loop.runPending();
    EXPECT_EQ(ownToggles, 1);
}

}  // namespace
}  // namespace kestrow::suite

namespace kestrow::suite {
namespace {

// The suite folder under a member's feet: deleted, or swapped for a new folder by another process,
// with or without an event that says so. Each time the member prepares it again, watches it again,
// reads everyone afresh and writes its own record there at once.
TEST_F(Participant, ADeletedOrReplacedGlancesFolderIsPreparedAgainAndReadAfresh) {
    struct Case {
        const char* what;
        bool replaced;  // another member made the new folder, with its record in it
        bool event;     // the watch reports it; otherwise the next tick finds out
    };
    const Case cases[] = {
        {"deleted, the watch says so", false, true},
        {"replaced, the watch says so", true, true},
        {"replaced, no event", true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto p = make(SuiteApp::corvane);
        p->publish(GlanceLevel::ok, metrics(10), 10);
        other(SuiteApp::fennick);
        ASSERT_TRUE(p->isActive());

        std::filesystem::rename(folder.glancesURL(), folder.url + "/glances.old");
        if (c.replaced) {
            ASSERT_TRUE(folder.prepare().ok());
            const GlanceRecord garrow(SuiteApp::garrow, false, GlanceState::running, epochSeconds(loop.wallClock()), 10,
                                      GlanceLevel::alert, {});
            ASSERT_TRUE(GlanceStore{folder}.write(garrow).ok());
        }
        if (c.event) loop.folderGone(folder.glancesURL());
        else loop.advance(SuiteParticipant::timerInterval(10));

        EXPECT_TRUE(p->foldersReady());
        ASSERT_TRUE(onDisk(SuiteApp::corvane)) << "our record is written into the new folder at once";
        EXPECT_EQ(onDisk(SuiteApp::corvane)->metrics, metrics(10));
        if (c.replaced) {
            EXPECT_EQ(p->worstLevel(), GlanceLevel::alert) << "the new folder's records are read";
        }
        // Watched again: another member's record there is heard at once.
        const auto watched = loop.watchedFolders();
        EXPECT_EQ(std::count(watched.begin(), watched.end(), folder.glancesURL()), 1);
        other(SuiteApp::jessap, false, GlanceLevel::notice);
        EXPECT_TRUE(std::any_of(p->rows().begin(), p->rows().end(),
                                [](const SuiteRow& row) { return row.app() == SuiteApp::jessap && row.isRunning(); }));
        p->shutdown();
        std::filesystem::remove_all(folder.url + "/glances.old");
        std::filesystem::remove_all(folder.glancesURL());
        ASSERT_TRUE(folder.prepare().ok());
    }
}

// While the folder cannot be made (a file stands in its place) the member tries again every 5 s, and
// takes part again as soon as it can.
TEST_F(Participant, AFolderThatCannotBePreparedIsTriedAgainEveryFiveSeconds) {
    CapturedLog log;
    auto p = make(SuiteApp::corvane);
    p->publish(GlanceLevel::ok, metrics(10), 10);
    std::filesystem::remove_all(folder.url);
    kestrow::testing::writeFile(folder.url, "in the way");
    loop.folderGone(folder.url);
    EXPECT_FALSE(p->foldersReady());
    loop.advance(SuiteParticipant::repairInterval * 3);
    EXPECT_FALSE(p->foldersReady());
    ASSERT_EQ(::unlink(folder.url.c_str()), 0);
    loop.advance(SuiteParticipant::repairInterval);
    EXPECT_TRUE(p->foldersReady());
    EXPECT_TRUE(onDisk(SuiteApp::corvane));
    other(SuiteApp::fennick);
    EXPECT_TRUE(p->isActive());
    EXPECT_EQ(log.count("suite folder " + folder.url + " was deleted or moved away; preparing it again\n"), 1)
        << log.text();
    EXPECT_EQ(log.count("suite folder not usable: " + folder.url), 1) << "logged once, tried every 5 s";
}

// Someone replaces "host.lock" under the host: another process could lock the new file and host
// too. The folder's watch makes the holder look at once, and without an event the next tick of the
// participant's timer does, long before the lock thread's own round of checks (made an hour long
// here); either way it ends up holding the file the name now stands for.
TEST_F(Participant, AReplacedLockFileIsLetGoAtOnceWhenTheFolderSaysSoOrAtTheNextTick) {
    SuiteParticipant::Options options = immediate();
    options.lockTiming.poll = std::chrono::milliseconds(10);
    options.lockTiming.retry = std::chrono::hours(1);
    options.lockTiming.heldCheck = std::chrono::hours(1);
    other(SuiteApp::corvane);
    auto p = make(SuiteApp::brimlet, options);
    p->publish(GlanceLevel::ok, metrics(20), 10);
    ASSERT_TRUE(loop.runUntil([&] { return p->isHost(); }, 10s));

    auto heldByAnother = [&] {
        const int fd = ::open(folder.lockURL().c_str(), O_RDWR | O_CLOEXEC);
        if (fd < 0) return false;
        const bool held = ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        ::close(fd);
        return held;
    };
    ASSERT_TRUE(heldByAnother());
    for (const bool renamedOver : {true, false})
        for (const bool folderSaysSo : {true, false}) {
            SCOPED_TRACE(std::string(renamedOver ? "renamed over" : "unlinked") +
                         (folderSaysSo ? ", event" : ", tick"));
            if (renamedOver) {
                kestrow::testing::writeFile(folder.url + "/fresh.lock", "");
                ASSERT_EQ(::rename((folder.url + "/fresh.lock").c_str(), folder.lockURL().c_str()), 0);
            } else {
                ASSERT_EQ(::unlink(folder.lockURL().c_str()), 0);
            }
            if (folderSaysSo) loop.folderChanged(folder.url, {"host.lock"});
            else loop.advance(SuiteParticipant::timerInterval(10));
            EXPECT_TRUE(loop.runUntil([&] { return heldByAnother() && p->isHost(); }, 20s))
                << "the host still holds the old file";
        }
}

// A shared settings file that cannot be read (here: larger than a settings file may be) is never
// saved over: the other members' keys in it survive. Once it is rewritten readable, it is read again
// and saving works as before.
TEST_F(Participant, ASettingsFileThatCannotBeReadIsNeverSavedOver) {
    CapturedLog log;
    std::string big = "{\"floatingVisible\":true,\"theirs\":\"" + std::string(70'000, 'x') + "\"}";
    kestrow::testing::writeFile(folder.settingsURL(), big);
    other(SuiteApp::corvane);
    auto p = make(SuiteApp::brimlet);
    p->publish(GlanceLevel::ok, metrics(20), 10);
    ASSERT_TRUE(loop.runUntil([&] { return p->isHost(); }, 10s));
    EXPECT_FALSE(p->settings().floatingVisible) << "an unreadable file reads as the defaults";

    p->floatingBarMoved({10, 20});
    loop.advance(SuiteParticipant::settingsSaveDelay);
    items.saved = 640;
    loop.advance(SuiteParticipant::timerInterval(10));
    auto onDiskSettings = [&] {
        std::ifstream in(folder.settingsURL());
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    EXPECT_EQ(onDiskSettings(), big);
    EXPECT_EQ(log.count("suite settings not read: settings.json could not be read (larger than 65,536 bytes)"), 1)
        << log.text();

    // Another member rewrites it within bounds: it is read again, and saves keep its keys.
    ASSERT_TRUE(writeAtomically(folder.settingsURL(), "{\"floatingVisible\":true,\"theirs\":\"kept\"}").ok());
    loop.folderChanged(folder.url, {"settings.json"});
    EXPECT_TRUE(p->settings().floatingVisible);
    p->floatingBarMoved({30, 40});
    loop.advance(SuiteParticipant::settingsSaveDelay);
    const SuiteSettings saved = SuiteSettings::read(folder);
    EXPECT_EQ(saved.floatingTopLeft, (std::pair<double, double>{30, 40}));
    EXPECT_EQ(saved.unknown.at("theirs"), JSONValue("kept"));
}

// Every member's clock set back an hour: the record is written again at once with the new time, and
// the suite stays active with its members running.
TEST_F(Participant, AClockSetBackAnHourIsWrittenAtOnceAndTheSuiteStaysActive) {
    double skew = 0;
    SuiteParticipant::Options options = immediate();
    options.clock = [&] { return loop.wallClock() + Seconds(skew); };
    auto p = make(SuiteApp::corvane, options);
    p->publish(GlanceLevel::ok, metrics(10), 10);
    auto fennick = [&] {
        const GlanceRecord record(SuiteApp::fennick, true, GlanceState::running, epochSeconds(loop.wallClock()) + skew,
                                  10, GlanceLevel::ok, {});
        ASSERT_TRUE(GlanceStore{folder}.write(record).ok());
        look();
    };
    fennick();
    ASSERT_TRUE(p->isActive());
    loop.advance(2s);

    skew = -3600;
    fennick();
    loop.advance(SuiteParticipant::timerInterval(10));
    ASSERT_TRUE(onDisk(SuiteApp::corvane));
    EXPECT_LE(onDisk(SuiteApp::corvane)->at, epochSeconds(loop.wallClock()) + skew) << "rewritten with the new time";
    for (int second = 0; second < 60; ++second) {
        if (second % 4 == 0) fennick();
        loop.advance(1s);
        look();
        ASSERT_TRUE(p->isActive()) << second;
        ASSERT_EQ(p->rows().size(), 2u);
        EXPECT_TRUE(p->rows()[0].isRunning() && p->rows()[1].isRunning()) << second;
        EXPECT_FALSE(p->showsOwnIcon()) << "the host is heard: " << second;
        EXPECT_GE(onDisk(SuiteApp::corvane)->at, epochSeconds(loop.wallClock()) + skew - 5) << second;
    }
}

// One member's clock an hour ahead or behind: it counts while it writes, and drops out about one ttl
// after its last write, neither hidden by the skew nor kept alive by it.
TEST_F(Participant, AMemberWithAClockAnHourOffCountsWhileItWritesAndNotLonger) {
    for (const double skew : {3600.0, -3600.0}) {
        SCOPED_TRACE(skew);
        auto p = make(SuiteApp::corvane);
        p->publish(GlanceLevel::ok, metrics(10), 10);
        auto fennick = [&] {
            const GlanceRecord record(SuiteApp::fennick, false, GlanceState::running,
                                      epochSeconds(loop.wallClock()) + skew, 10, GlanceLevel::alert, {});
            ASSERT_TRUE(GlanceStore{folder}.write(record).ok());
            look();
        };
        for (int second = 0; second < 30; ++second) {
            if (second % 5 == 0) fennick();
            loop.advance(1s);
            look();
            if (second >= 5) {
                EXPECT_TRUE(p->isActive()) << second;
                EXPECT_EQ(p->worstLevel(), GlanceLevel::alert) << second;
            }
        }
        // Its last write was at second 25; it expires 10 s later on our clock.
        loop.advance(Seconds(4.9));
        look();
        EXPECT_EQ(p->worstLevel(), GlanceLevel::alert);
        loop.advance(Seconds(0.2));
        look();
        EXPECT_EQ(p->worstLevel(), GlanceLevel::ok) << "not kept alive by its clock";
        loop.advance(Seconds(10.1));
        look();
        EXPECT_FALSE(p->isActive());
        p->shutdown();
        ASSERT_EQ(::unlink(folder.glanceURL(SuiteApp::fennick).c_str()), 0);
    }
}

}  // namespace
}  // namespace kestrow::suite

namespace kestrow::suite {
namespace {

// Another process rewriting its record as fast as it can: the first event is read at once, the rest
// of the storm at most once per rereadInterval, and the last write is always read.
TEST_F(Participant, AStormOfWritesIsReadAtMostOnceEveryTenthOfASecond) {
    auto p = make(SuiteApp::corvane, SuiteParticipant::Options{});
    p->publish(GlanceLevel::ok, {}, 10);
    auto write = [&](double value) {
        const GlanceRecord record(SuiteApp::fennick, false, GlanceState::running, epochSeconds(loop.wallClock()), 10,
                                  GlanceLevel::ok, {GlanceMetric{"load", "Load", value, "%", {}}});
        ASSERT_TRUE(GlanceStore{folder}.write(record).ok());
        loop.folderChanged(folder.glancesURL(), {"fennick.json"});
    };
    auto shown = [&] {
        return p->menuBarValues().empty() ? -1.0 : std::get<double>(p->menuBarValues()[0].second.value);
    };
    changes.clear();
    write(1);
    EXPECT_EQ(shown(), 1) << "a quiet folder's first event is read at once";
    for (int i = 2; i <= 1000; ++i) write(i);
    EXPECT_EQ(shown(), 1);
    loop.advance(SuiteParticipant::defaultRereadInterval / 2);
    EXPECT_EQ(shown(), 1);
    loop.advance(SuiteParticipant::defaultRereadInterval / 2);
    EXPECT_EQ(shown(), 1000) << "the storm's last write is read";
    for (int round = 0; round < 10; ++round) {
        for (int i = 0; i < 100; ++i) write(2000 + round * 100 + i);
        loop.advance(SuiteParticipant::defaultRereadInterval);
    }
    EXPECT_EQ(shown(), 2999);
    EXPECT_LE(std::count(changes.begin(), changes.end(), Property::menuBarValues), 12);

    // An evaluation of our own while the watch is paused (a new readout to publish) reads the folder
    // as it is then; a write after it is unheard, and the paused reading must still see it.
    loop.advance(SuiteParticipant::defaultRereadInterval);
    write(5000);
    EXPECT_EQ(shown(), 5000);
    write(5001);  // the watch pauses
    p->publish(GlanceLevel::ok, {}, 10);
    EXPECT_EQ(shown(), 5001);
    write(5002);
    loop.advance(SuiteParticipant::defaultRereadInterval);
    EXPECT_EQ(shown(), 5002) << "a write made while the watch was paused is read";
}

}  // namespace
}  // namespace kestrow::suite
