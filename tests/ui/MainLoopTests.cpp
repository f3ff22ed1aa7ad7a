#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <thread>

#include "base/Files.hpp"
#include "base/MainLoop.hpp"
#include "tests/support/ManualMainLoop.hpp"
#include "tests/support/TempFolder.hpp"

namespace kestrow {
namespace {

using namespace std::chrono_literals;

TEST(ManualMainLoop, TimersFireInOrderAtTheirDueTimes) {
    ManualMainLoop loop;
    std::vector<std::pair<std::string, double>> fired;
    auto every = loop.repeat(1s, 100ms, [&] { fired.emplace_back("tick", loop.elapsed().count()); });
    auto once = loop.after(2s, [&] { fired.emplace_back("once", loop.elapsed().count()); });
    loop.advance(3500ms);
    // Timers due at the same instant fire in the order they were made.
    const std::vector<std::pair<std::string, double>> expected{
        {"tick", 1.0}, {"tick", 2.0}, {"once", 2.0}, {"tick", 3.0}};
    EXPECT_EQ(fired, expected);
    EXPECT_DOUBLE_EQ(loop.elapsed().count(), 3.5);
    EXPECT_DOUBLE_EQ(epochSeconds(loop.wallClock()), 1'700'000'003.5);
    ASSERT_EQ(loop.repeatingTimers().size(), 1u);
    EXPECT_DOUBLE_EQ(loop.repeatingTimers()[0].tolerance.count(), 0.1);
}

TEST(ManualMainLoop, TokensCancelEvenFromTheirOwnCallbackAndAfterTheLoopIsGone) {
    MainLoop::Token survivor;
    {
        ManualMainLoop loop;
        int ticks = 0;
        MainLoop::Token token;
        token = loop.repeat(1s, 0s, [&] {
            if (++ticks == 2) token.cancel();
        });
        loop.advance(10s);
        EXPECT_EQ(ticks, 2);
        EXPECT_FALSE(token.active());

        int delayed = 0;
        auto replaced = loop.after(1s, [&] { ++delayed; });
        replaced = loop.after(2s, [&] { delayed += 10; });  // assigning cancels the first delay
        loop.advance(3s);
        EXPECT_EQ(delayed, 10);
        survivor = loop.after(5s, [] {});
    }
    survivor.cancel();  // must not touch the destroyed loop
    EXPECT_FALSE(survivor.active());
}

TEST(ManualMainLoop, SleepWakesObserversThenFiresOverdueTimersOnce) {
    ManualMainLoop loop;
    std::vector<std::string> events;
    auto tick =
        loop.repeat(5s, 500ms, [&] { events.push_back("tick@" + std::to_string(int(loop.elapsed().count()))); });
    auto wake = loop.onWake([&] { events.push_back("wake@" + std::to_string(int(loop.elapsed().count()))); });
    loop.advance(1s);
    loop.sleep(1h);
    EXPECT_EQ(events, (std::vector<std::string>{"wake@3601", "tick@3601"}));
    loop.advance(5s);
    EXPECT_EQ(events.back(), "tick@3606");
}

TEST(ManualMainLoop, RunUntilTakesPostsFromOtherThreadsAndGivesUpAtItsDeadline) {
    ManualMainLoop loop;
    std::atomic<int> seen{0};
    std::thread poster([&] {
        for (int i = 0; i < 3; ++i) loop.post([&] { ++seen; });
    });
    EXPECT_TRUE(loop.runUntil([&] { return seen == 3; }, 5s));
    poster.join();
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(loop.runUntil([] { return false; }, 50ms));
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
}

TEST(ManualMainLoop, WatchesOnlyFoldersThatExist) {
    testing::TempFolder temp;
    ManualMainLoop loop;
    int changes = 0;
    auto missing = loop.watchFolder(temp / "absent", [&] { ++changes; });
    EXPECT_TRUE(missing.status.failed());
    EXPECT_NE(missing.status.message().find("errno"), std::string::npos);
    auto watch = loop.watchFolder(temp.path() + "/", [&] { ++changes; });
    ASSERT_TRUE(watch.status.ok());
    loop.folderChanged(temp.path());
    EXPECT_EQ(changes, 1);
    watch.token.cancel();
    loop.folderChanged(temp.path());
    EXPECT_EQ(changes, 1);
}

TEST(WakeDetector, TellsSleepByTheGrowingGapBetweenTheClocks) {
    struct Case {
        const char* what;
        std::vector<std::pair<double, double>> readings;  // (continuous, monotonic)
        std::vector<bool> expected;
    };
    const Case cases[] = {
        {"running normally", {{100, 50}, {101, 51}, {105, 55}}, {false, false, false}},
        {"a short nap is below the threshold", {{100, 50}, {101.9, 51}}, {false, false}},
        {"an hour asleep", {{100, 50}, {3701, 51}, {3702, 52}}, {false, true, false}},
        {"two sleeps", {{0, 0}, {10, 1}, {11, 2}, {30, 3}}, {false, true, false, true}},
    };
    for (const Case& c : cases) {
        WakeDetector detector;
        std::vector<bool> got;
        for (auto [continuous, monotonic] : c.readings)
            got.push_back(
                detector.sample(ContinuousTime(Seconds(continuous)), WakeDetector::MonotonicTime(Seconds(monotonic))));
        EXPECT_EQ(got, c.expected) << c.what;
    }
}

// The real loop: every wait below ends on a condition; a watchdog delay stops the loop and fails the
// test instead of hanging it.
class SystemMainLoop : public ::testing::Test {
protected:
    std::unique_ptr<MainLoop> loop = makeSystemMainLoop(false);
    bool timedOut = false;
    MainLoop::Token watchdog = loop->after(5s, [this] {
        timedOut = true;
        loop->stop();
    });
};

TEST_F(SystemMainLoop, RunsPostsFromOtherThreadsInOrderOnItsOwnThread) {
    const auto loopThread = std::this_thread::get_id();
    std::vector<int> order;
    bool allOnLoopThread = true;
    std::thread poster([&] {
        for (int i = 0; i < 100; ++i)
            loop->post([&, i] {
                order.push_back(i);
                allOnLoopThread = allOnLoopThread && std::this_thread::get_id() == loopThread;
                if (order.size() == 100) loop->stop();
            });
    });
    loop->run();
    poster.join();
    EXPECT_FALSE(timedOut);
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(order[i], i);
    EXPECT_TRUE(allOnLoopThread);
}

// Posts from the loop's own thread skip the wake-up descriptor: they must still run in order, after
// the task that posted them, never shut out a due timer, and survive a stop for the next run.
TEST_F(SystemMainLoop, PostsFromItsOwnThreadRunInOrderAndLeaveTheOtherSourcesTheirTurn) {
    std::vector<int> order;
    bool timerFired = false;
    long spins = 0;
    std::function<void()> spin = [&] {
        // A task that posts itself for ever; the cap only turns a starved timer into a failure.
        if (timerFired || ++spins > 10'000'000) loop->stop();
        else loop->post(spin);
    };
    auto timer = loop->after(1ms, [&] { timerFired = true; });
    loop->post([&] {
        for (int i = 1; i <= 5; ++i) loop->post([&, i] { order.push_back(i); });
        order.push_back(0);
        loop->post(spin);
    });
    loop->run();
    EXPECT_FALSE(timedOut);
    EXPECT_TRUE(timerFired);
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5}));

    bool later = false;
    loop->post([&] {
        loop->post([&] {
            later = true;
            loop->stop();
        });
        loop->stop();
    });
    loop->run();
    EXPECT_FALSE(later);  // stopped before its turn
    loop->run();
    EXPECT_TRUE(later);
    EXPECT_FALSE(timedOut);
}

TEST_F(SystemMainLoop, RepeatsAndDelaysCountOnTheContinuousClock) {
    const ContinuousTime start = loop->now();
    int ticks = 0;
    std::optional<ContinuousTime> delayFiredAt;
    auto delay = loop->after(50ms, [&] { delayFiredAt = loop->now(); });
    auto cancelled = loop->after(10ms, [&] { ADD_FAILURE() << "a cancelled delay fired"; });
    cancelled.cancel();
    MainLoop::Token every = loop->repeat(10ms, 1ms, [&] {
        if (++ticks == 10) loop->stop();
    });
    loop->run();
    EXPECT_FALSE(timedOut);
    EXPECT_EQ(ticks, 10);
    EXPECT_GE(loop->now() - start, 90ms);
    if (delayFiredAt) {
        EXPECT_GE(*delayFiredAt - start, 50ms);
    }
    EXPECT_NEAR(epochSeconds(loop->wallClock()), epochSeconds(WallClock::now()), 1.0);
}

// A timer with a tolerance fires at the first wake after its deadline, not at a wake of its own: here
// only the strict delay wakes the loop within the repeat's first window, so the repeat's first firing
// comes with it (and before it, being due earlier). Later, alone, the repeat still fires, never early.
TEST_F(SystemMainLoop, ATolerantTimerRidesAlongWithAnotherWake) {
    const ContinuousTime start = loop->now();
    std::vector<std::pair<char, ContinuousTime>> fired;
    MainLoop::Token every = loop->repeat(40ms, 40ms, [&] {
        fired.emplace_back('r', loop->now());
        if (std::count_if(fired.begin(), fired.end(), [](const auto& f) { return f.first == 'r'; }) == 3) loop->stop();
    });
    auto strict = loop->after(60ms, [&] { fired.emplace_back('s', loop->now()); });
    loop->run();
    EXPECT_FALSE(timedOut);
    ASSERT_EQ(fired.size(), 4u);
    EXPECT_EQ(fired[0].first, 'r');
    EXPECT_EQ(fired[1].first, 's');
    EXPECT_GE(fired[0].second - start, 60ms) << "the repeat woke the loop for itself";
    // Its period goes on from the deadline it was due at: the next ones are due at 80 and 120 ms.
    EXPECT_GE(fired[2].second - start, 80ms);
    EXPECT_GE(fired[3].second - start, 120ms);
}

// All timers share one descriptor armed for the earliest deadline: however they are added, moved
// earlier or cancelled, they fire in deadline order and not before it, and none opens a descriptor of
// its own.
TEST_F(SystemMainLoop, ManyTimersFireInDeadlineOrderOnOneDescriptor) {
    const auto openDescriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = openDescriptors();
    std::vector<int> delays(60);
    std::iota(delays.begin(), delays.end(), 1);
    std::shuffle(delays.begin(), delays.end(), std::mt19937(7));
    std::map<int, ContinuousTime> due, firedAt;
    std::vector<int> order;
    std::vector<MainLoop::Token> tokens;
    const ContinuousTime addingFrom = loop->now();
    for (const int d : delays) {
        due[d] = loop->now() + std::chrono::milliseconds(d);
        tokens.push_back(loop->after(std::chrono::milliseconds(d), [&, d] {
            order.push_back(d);
            firedAt[d] = loop->now();
        }));
    }
    // Each deadline lies between the time asked for and that plus the time all the adding took.
    const auto slack = loop->now() - addingFrom;
    EXPECT_EQ(openDescriptors(), before);
    for (std::size_t i = 0; i < delays.size(); ++i)
        if (delays[i] % 3 == 0) tokens[i].cancel();  // the earliest deadline among them
    // A delay added by a timer's own task still gets the descriptor armed for it.
    bool followUp = false;
    auto outer = loop->after(30ms, [&] { tokens.push_back(loop->after(0s, [&] { followUp = true; })); });
    auto done = loop->after(70ms, [&] { loop->stop(); });
    loop->run();
    EXPECT_FALSE(timedOut);
    EXPECT_TRUE(followUp);
    std::vector<int> sorted = order;
    std::sort(sorted.begin(), sorted.end());
    std::vector<int> expected;
    for (int d = 1; d <= 60; ++d)
        if (d % 3 != 0) expected.push_back(d);
    EXPECT_EQ(sorted, expected);
    for (std::size_t i = 0; i < order.size(); ++i) {
        EXPECT_GE(firedAt[order[i]], due[order[i]]) << order[i] << " fired early";
        for (std::size_t j = i + 1; j < order.size(); ++j)
            EXPECT_FALSE(due[order[j]] + slack < due[order[i]]) << order[j] << " fired after " << order[i];
    }
}

TEST_F(SystemMainLoop, ReportsWritesInAWatchedFolderUntilCancelled) {
    testing::TempFolder temp;
    auto missing = loop->watchFolder(temp / "absent", [] {});
    EXPECT_TRUE(missing.status.failed());
    EXPECT_FALSE(missing.token.active());

    int changes = 0;
    auto watch = loop->watchFolder(temp.path(), [&] {
        ++changes;
        loop->stop();
    });
    ASSERT_TRUE(watch.status.ok()) << watch.status.message();
    // A second watcher on the same folder is independent of the first.
    int otherChanges = 0;
    auto other = loop->watchFolder(temp.path(), [&] { ++otherChanges; });
    ASSERT_TRUE(other.status.ok());
    other.token.cancel();
    auto write = loop->after(10ms, [&] { ASSERT_TRUE(writeAtomically(temp / "record.json", "{}").ok()); });
    loop->run();
    EXPECT_FALSE(timedOut);
    EXPECT_GE(changes, 1);
    EXPECT_EQ(otherChanges, 0);

    watch.token.cancel();
    const int before = changes;
    auto again = loop->after(10ms, [&] { ASSERT_TRUE(writeAtomically(temp / "other.json", "{}").ok()); });
    auto done = loop->after(200ms, [&] { loop->stop(); });
    loop->run();
    EXPECT_EQ(changes, before);
}

// A terminal's keys and a signal handler's pipe come through the loop like everything else: the
// task runs on the loop's thread while there is something to read, and never after its token went.
TEST_F(SystemMainLoop, ReportsADescriptorWithSomethingToReadUntilCancelled) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    std::string received;
    auto watch = loop->watchReadable(ends[0], [&] {
        char bytes[16];
        const ssize_t n = ::read(ends[0], bytes, sizeof bytes);
        if (n > 0) received.append(bytes, static_cast<std::size_t>(n));
        if (received == "keys") loop->stop();
    });
    std::thread writer([&] { ASSERT_EQ(::write(ends[1], "keys", 4), 4); });
    loop->run();
    writer.join();
    EXPECT_FALSE(timedOut);
    EXPECT_EQ(received, "keys");

    watch.cancel();
    ASSERT_EQ(::write(ends[1], "more", 4), 4);
    auto done = loop->after(200ms, [&] { loop->stop(); });
    loop->run();
    EXPECT_EQ(received, "keys");
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(ManualMainLoop, ADescriptorIsReadableWhenTheTestSaysSo) {
    ManualMainLoop loop;
    int calls = 0;
    auto watch = loop.watchReadable(7, [&] { ++calls; });
    EXPECT_FALSE(loop.descriptorReadable(8));
    EXPECT_TRUE(loop.descriptorReadable(7));
    EXPECT_EQ(calls, 1);
    watch.cancel();
    EXPECT_FALSE(loop.descriptorReadable(7));
    EXPECT_EQ(calls, 1);
}

TEST_F(SystemMainLoop, AWatcherDoesNotHearOfTheEntriesItIgnores) {
    testing::TempFolder temp;
    int changes = 0;
    auto watch = loop->watchFolder(
        temp.path(), [&] { ++changes; },
        [](std::string_view name) { return name == "mine.json" || isAtomicWriteTemporary(name, "mine.json"); });
    ASSERT_TRUE(watch.status.ok()) << watch.status.message();

    // Our own atomic write (a temporary file renamed over the record) is not reported, though the
    // kernel queues its events at once...
    auto own = loop->after(10ms, [&] { ASSERT_TRUE(writeAtomically(temp / "mine.json", "{}").ok()); });
    int changesBeforeTheirs = -1;
    auto check = loop->after(120ms, [&] { changesBeforeTheirs = changes; });
    // ...while another entry's write, a moment later, is.
    auto theirs = loop->after(150ms, [&] { ASSERT_TRUE(writeAtomically(temp / "theirs.json", "{}").ok()); });
    auto stopWhenHeard = loop->repeat(10ms, 0s, [&] {
        if (changes > 0 && changesBeforeTheirs >= 0) loop->stop();
    });
    loop->run();
    EXPECT_FALSE(timedOut);
    EXPECT_EQ(changesBeforeTheirs, 0);
    EXPECT_GE(changes, 1);
}

// A watched folder deleted or moved away ends its watch and says so once; a folder made again at
// the same path is watched afresh.
TEST_F(SystemMainLoop, AWatchedFolderThatGoesAwaySaysSoOnce) {
    testing::TempFolder temp;
    for (const bool moved : {false, true}) {
        SCOPED_TRACE(moved ? "moved away" : "deleted");
        const std::string path = temp / "watched";
        ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
        int gone = 0, changes = 0;
        auto watch = loop->watchFolder(
            path, [&] { ++changes; }, {},
            [&] {
                ++gone;
                loop->stop();
            });
        ASSERT_TRUE(watch.status.ok()) << watch.status.message();
        auto remove = loop->after(10ms, [&] {
            if (moved) std::filesystem::rename(path, temp / "elsewhere");
            else std::filesystem::remove_all(path);
        });
        loop->run();
        EXPECT_FALSE(timedOut);
        EXPECT_EQ(gone, 1);
        // The moved folder's later changes are not reported as the path's.
        if (moved) {
            auto write = loop->after(10ms, [&] { ASSERT_TRUE(writeAtomically(temp / "elsewhere/x", "{}").ok()); });
            auto done = loop->after(200ms, [&] { loop->stop(); });
            loop->run();
            EXPECT_EQ(changes, 0);
            EXPECT_EQ(gone, 1);
            std::filesystem::remove_all(temp / "elsewhere");
        }
    }
}

TEST(SystemMainLoopSignals, SigtermEndsTheLoopCleanly) {
    auto loop = makeSystemMainLoop(true);
    bool timedOut = false;
    auto watchdog = loop->after(5s, [&] {
        timedOut = true;
        loop->stop();
    });
    auto send = loop->after(10ms, [] { ::raise(SIGTERM); });
    loop->run();
    EXPECT_FALSE(timedOut);
}

}  // namespace
}  // namespace kestrow
