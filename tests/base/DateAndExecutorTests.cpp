#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>
#include <tuple>

#include "base/IsoDate.hpp"
#include "base/SerialExecutor.hpp"
#include "tests/support/ManualMainLoop.hpp"

namespace kestrow {
namespace {

// Written in whole seconds, read leniently: fractions and offsets are accepted, a fraction is dropped
// when written again (rounded toward the past, before 1970 too).
TEST(IsoDate, WritesWholeSecondsAndReadsLeniently) {
    struct Case {
        const char* text;
        std::optional<const char*> written;  // none: refused
    };
    const Case cases[] = {
        {"2026-11-23T09:15:02Z", "2026-11-23T09:15:02Z"},
        {"2026-11-23T09:15:02.125Z", "2026-11-23T09:15:02Z"},
        {"2026-11-23T09:15:02.999999Z", "2026-11-23T09:15:02Z"},
        {"2026-11-23T09:15:02.1234567Z", "2026-11-23T09:15:02Z"},
        {"2026-11-23T23:59:59.9+00:00", "2026-11-23T23:59:59Z"},
        {"2026-11-23T10:15:02+01:00", "2026-11-23T09:15:02Z"},
        {"2026-11-23T00:15:02-01:30", "2026-11-23T01:45:02Z"},
        {"2024-02-29T23:59:59Z", "2024-02-29T23:59:59Z"},
        {"1969-12-31T23:59:59.5Z", "1969-12-31T23:59:59Z"},
        {"1969-12-31T23:59:59Z", "1969-12-31T23:59:59Z"},
        {"1970-01-01T00:00:00.000001Z", "1970-01-01T00:00:00Z"},
        {"2025-02-29T00:00:00Z", std::nullopt},
        {"2026-13-01T00:00:00Z", std::nullopt},
        {"2026-11-23T24:00:00Z", std::nullopt},
        {"2026-11-23 09:15:02Z", std::nullopt},
        {"2026-11-23T09:15:02", std::nullopt},
        {"2026-11-23T09:15:02.Z", std::nullopt},
        {"2026-11-23T09:15:02.1234567890Z", std::nullopt},
        {"2026-11-23T09:15:02Zjunk", std::nullopt},
        {"2026-11-23T09:15:02+0100", std::nullopt},
    };
    for (const Case& c : cases) {
        const auto date = parseIsoDate(c.text);
        ASSERT_EQ(date.has_value(), c.written.has_value()) << c.text;
        if (date) {
            EXPECT_EQ(formatIsoDate(*date), *c.written) << c.text;
        }
    }
    EXPECT_EQ(*parseIsoDate("2026-11-23T09:15:02.125Z") - *parseIsoDate("2026-11-23T09:15:02Z"),
              std::chrono::milliseconds(125));
    const Date now = currentDate();
    EXPECT_EQ(parseIsoDate(formatIsoDate(now)), std::chrono::floor<std::chrono::seconds>(now));
}

TEST(SerialExecutor, RunsOneCallAtATimeInOrder) {
    SerialExecutor executor("test");
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    std::vector<int> order;
    std::vector<std::future<void>> done;
    for (int i = 0; i < 200; ++i) {
        done.push_back(executor.submit([&, i] {
            if (inside.fetch_add(1) != 0) overlapped = true;
            order.push_back(i);
            std::this_thread::yield();
            inside.fetch_sub(1);
        }));
    }
    for (auto& f : done) f.get();
    EXPECT_FALSE(overlapped);
    ASSERT_EQ(order.size(), 200u);
    for (int i = 0; i < 200; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    EXPECT_EQ(executor.submit([] { return 41 + 1; }).get(), 42);
    EXPECT_TRUE(executor.submit([&] { return executor.isCurrent(); }).get());
    EXPECT_FALSE(executor.isCurrent());
}

TEST(SerialExecutor, FinishesQueuedWorkBeforeItIsDestroyed) {
    std::atomic<int> ran{0};
    {
        SerialExecutor executor;
        // The futures are dropped on purpose: destruction alone must run the queued work.
        for (int i = 0; i < 50; ++i) std::ignore = executor.submit([&] { ++ran; });
    }
    EXPECT_EQ(ran.load(), 50);
}

// A reply runs the work on the executor's thread and its continuation on the loop's, in the order
// of the calls; work that throws hands nothing on, and the continuation is still released on the
// loop's thread, with what it holds.
TEST(SerialExecutor, RepliesOnTheLoopsThread) {
    ManualMainLoop loop;
    SerialExecutor executor("test");
    const auto loopThread = std::this_thread::get_id();
    std::vector<std::string> heard;
    std::atomic<int> workOffLoop{0};
    auto held = std::make_shared<int>(0);
    std::weak_ptr<int> watch = held;
    std::thread::id releasedOn;
    struct Release {
        std::thread::id* on;
        ~Release() { *on = std::this_thread::get_id(); }
    };
    auto release = std::make_shared<Release>(Release{&releasedOn});
    executor.submitReplying(
        [&] {
            if (std::this_thread::get_id() != loopThread) ++workOffLoop;
            return 1;
        },
        loop, [&](int value) { heard.push_back("first " + std::to_string(value)); });
    executor.submitReplying(
        []() -> int { throw std::runtime_error("no figure"); }, loop,
        [&, held = std::move(held), release = std::move(release)](int) { heard.push_back("thrown"); });
    executor.replyWhenReady(executor.submit([] { return std::string("later"); }), loop,
                            [&](std::string value) { heard.push_back(value); });
    ASSERT_TRUE(loop.runUntil([&] { return heard.size() == 2 && watch.expired(); }, std::chrono::seconds(10)));
    EXPECT_EQ(heard, (std::vector<std::string>{"first 1", "later"}));
    EXPECT_EQ(workOffLoop.load(), 1);
    EXPECT_EQ(releasedOn, loopThread);
}

// The executor's thread carries its name, cut to what Linux keeps (a longer name would be refused).
TEST(SerialExecutor, NamesItsThread) {
    for (const std::string name : {"cleanup", "KestrowSuite.HostLock.long"}) {
        SerialExecutor executor(name);
        const auto tid = executor.submit([] { return static_cast<long>(::syscall(SYS_gettid)); }).get();
        std::ifstream comm("/proc/self/task/" + std::to_string(tid) + "/comm");
        std::string shown;
        std::getline(comm, shown);
        EXPECT_EQ(shown, name.substr(0, 15));
    }
}

}  // namespace
}  // namespace kestrow
