// A main loop for tests: its clocks move only when the test says so, and timers fire in order as the
// test advances time, so timer, wake and grace rules are checked without waiting. It lives beside
// the tests, not in the product's base library.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/MainLoop.hpp"
#include "base/Time.hpp"
#include "base/WeakGuard.hpp"

namespace kestrow {

// A loop for tests: its clocks move only when the test says so, and timers fire in order as the
// test advances time, so timer, wake and grace rules are checked without waiting.
class ManualMainLoop final : public MainLoop {
public:
    // The continuous clock starts at its epoch, the wall clock at `wallStart`.
    explicit ManualMainLoop(WallTime wallStart = fromEpochSeconds(1'700'000'000.0));
    ~ManualMainLoop() override;

    void post(Task task) override;
    Token after(Seconds delay, Task task) override;
    Token repeat(Seconds interval, Seconds tolerance, Task task) override;
    Watch watchFolder(const std::string& path, Task onChange, NameFilter ignored = {}, Task onGone = {}) override;
    Token onWake(Task task) override;
    Token watchReadable(int fd, Task onReadable) override;
    ContinuousTime now() const override { return now_; }
    WallTime wallClock() const override { return wallStart_ + elapsed(); }
    // How far the clocks moved since the loop was made.
    Seconds elapsed() const { return now_.time_since_epoch(); }
    // Runs posted tasks as they arrive until `stop`.
    void run() override;
    void stop() override;

    // Moves both clocks forward, firing every timer at its due time, with posted work run after each.
    void advance(Seconds length);
    // The machine sleeps for `length`: the clocks jump, then wake observers fire, then every overdue
    // timer fires once.
    void sleep(Seconds length);
    // Runs the tasks posted so far (and those they post).
    void runPending();
    // Runs posted tasks, waiting for other threads' posts, until `done` holds (checked after every
    // task, and at least every 10 ms) or `realTime` passed on the real clock; returns whether `done`
    // held. Tasks still queued when it holds stay queued.
    bool runUntil(const std::function<bool()>& done, Seconds realTime);
    // Reports a change in a watched folder, as the system would after a write; with `names`, as a
    // system that names the entries it saw change.
    void folderChanged(const std::string& path, const std::vector<std::string>& names = {});
    // Reports that a watched folder was deleted or moved away: its watches end, as the system's do.
    void folderGone(const std::string& path);
    // Runs the tasks watching the descriptor once, as the system would when it became readable;
    // false when nothing watches it.
    bool descriptorReadable(int fd);

    // What tests inspect: the interval and tolerance of live repeating timers.
    struct TimerInfo {
        Seconds interval{};
        Seconds tolerance{};
        ContinuousTime due{};
    };
    std::vector<TimerInfo> repeatingTimers() const;
    std::vector<std::string> watchedFolders() const;

private:
    struct Timer {
        ContinuousTime due{};
        Seconds interval{};  // zero: one-shot
        Seconds tolerance{};
        std::shared_ptr<Task> task;
    };
    struct Watcher {
        std::string path;
        std::shared_ptr<Task> task;
        NameFilter ignored;
        std::shared_ptr<Task> gone;
    };

    bool runOne();
    Token tokenFor(std::uint64_t id, int kind);
    void fireTimer(std::uint64_t id);

    WallTime wallStart_;
    ContinuousTime now_{};
    std::uint64_t nextId_ = 1;
    std::map<std::uint64_t, Timer> timers_;
    std::map<std::uint64_t, Watcher> watchers_;
    std::map<std::uint64_t, std::shared_ptr<Task>> wakeObservers_;
    std::map<std::uint64_t, std::pair<int, std::shared_ptr<Task>>> readables_;
    kestrow::WeakGuard guard_;

    mutable std::mutex mutex_;  // guards the posted queue and the stop flag
    std::condition_variable posted_;
    std::vector<Task> queue_;
    bool stopped_ = false;
};

}  // namespace kestrow
