// The one loop that runs the application's work on its main thread: tasks posted from any thread,
// repeating timers, one-shot delays, folder write events and the machine's wake from sleep.
//
// Everything except `post` and `stop` is called on the loop's own thread, and every callback runs
// there, so the state the callbacks touch needs no locks. Timers and delays count on a continuous
// clock that keeps running while the machine sleeps: a delay of 10 s that spans a sleep of an hour
// fires on wake, not an hour late.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Status.hpp"

namespace kestrow {

// Seconds since 1970-01-01 UTC: the time written into records other processes read.
double wallSeconds();
// Seconds on a clock that counts time asleep (CLOCK_BOOTTIME, mach_continuous_time); only
// differences mean anything.
double continuousSeconds();

class MainLoop {
public:
    using Task = std::function<void()>;

    // Owns one timer, delay, watch or observer: destroying or cancelling it stops the callback for
    // good. Safe to destroy inside its own callback, and after the loop itself is gone.
    class [[nodiscard]] Token {
    public:
        Token() = default;
        explicit Token(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
        Token(Token&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
        Token& operator=(Token&& other) noexcept {
            if (this != &other) {
                cancel();
                cancel_ = std::exchange(other.cancel_, nullptr);
            }
            return *this;
        }
        Token(const Token&) = delete;
        Token& operator=(const Token&) = delete;
        ~Token() { cancel(); }

        void cancel() {
            if (auto c = std::exchange(cancel_, nullptr)) c();
        }
        bool active() const { return static_cast<bool>(cancel_); }

    private:
        std::function<void()> cancel_;
    };

    struct [[nodiscard]] Watch {
        Token token;
        Status status;  // why the folder could not be watched; the token is then inactive
    };

    virtual ~MainLoop() = default;

    // From any thread; tasks run on the loop's thread in the order they were posted.
    virtual void post(Task task) = 0;
    virtual Token after(double seconds, Task task) = 0;
    // Fires every `interval` seconds; the loop may move a firing by up to `tolerance` to save power.
    virtual Token repeat(double interval, double tolerance, Task task) = 0;
    // Which entries' changes the watcher does not need to hear of (its own writes, say).
    using NameFilter = std::function<bool(std::string_view name)>;
    // Fires after entries of the folder were added, removed, renamed or rewritten; bursts may be
    // coalesced into one call. Where the platform names the entries, a burst that touched only
    // entries `ignored` accepts is not reported; elsewhere every burst is.
    // `onGone` fires once when the folder itself was deleted, moved away or unmounted: the watch is
    // dead from then on (its token may still be cancelled) and the path must be watched afresh.
    // Without `onGone` that event is reported through `onChange`.
    virtual Watch watchFolder(const std::string& path, Task onChange, NameFilter ignored = {}, Task onGone = {}) = 0;
    // Fires once the machine woke from sleep.
    virtual Token onWake(Task task) = 0;
    // Fires while the descriptor has something to read (a terminal's keys, the read end of a pipe
    // a signal handler writes to): the task must read what is there, or it is called again at once.
    // The descriptor stays the caller's; it must outlive the token.
    virtual Token watchReadable(int fd, Task onReadable) = 0;

    virtual double now() const = 0;        // the continuous clock the timers count on
    virtual double wallClock() const = 0;  // seconds since 1970

    virtual void run() = 0;
    // From any thread; `run` returns once the task it is running, if any, has finished.
    virtual void stop() = 0;
};

// The platform's loop: epoll on Linux (SIGINT, SIGTERM and SIGHUP stop it when `handleSignals`), the main
// dispatch queue on macOS. Create it on the main thread before any other thread is started.
std::unique_ptr<MainLoop> makeSystemMainLoop(bool handleSignals = true);

// Tells a wake from sleep by the gap between a clock that counts sleep and one that does not: the
// gap only grows while the machine is asleep. Fed a pair of readings per loop turn.
class WakeDetector {
public:
    explicit WakeDetector(double threshold = 1.0) : threshold_(threshold) {}
    // True when the machine slept since the previous readings for longer than the threshold.
    bool sample(double continuous, double monotonic);

private:
    double threshold_;
    std::optional<double> lastGap_;
};

// A loop for tests: its clocks move only when the test says so, and timers fire in order as the
// test advances time, so timer, wake and grace rules are checked without waiting.
class ManualMainLoop final : public MainLoop {
public:
    explicit ManualMainLoop(double wallStart = 1'700'000'000.0);
    ~ManualMainLoop() override;

    void post(Task task) override;
    Token after(double seconds, Task task) override;
    Token repeat(double interval, double tolerance, Task task) override;
    Watch watchFolder(const std::string& path, Task onChange, NameFilter ignored = {}, Task onGone = {}) override;
    Token onWake(Task task) override;
    Token watchReadable(int fd, Task onReadable) override;
    double now() const override { return now_; }
    double wallClock() const override { return wallStart_ + now_; }
    // Runs posted tasks as they arrive until `stop`.
    void run() override;
    void stop() override;

    // Moves both clocks forward, firing every timer at its due time, with posted work run after each.
    void advance(double seconds);
    // The machine sleeps for `seconds`: the clocks jump, then wake observers fire, then every overdue
    // timer fires once.
    void sleep(double seconds);
    // Runs the tasks posted so far (and those they post).
    void runPending();
    // Runs posted tasks, waiting for other threads' posts, until `done` holds (checked after every
    // task, and at least every 10 ms) or `realSeconds` of real time passed; returns whether `done`
    // held. Tasks still queued when it holds stay queued.
    bool runUntil(const std::function<bool()>& done, double realSeconds);
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
        double interval = 0;
        double tolerance = 0;
        double due = 0;
    };
    std::vector<TimerInfo> repeatingTimers() const;
    std::vector<std::string> watchedFolders() const;

private:
    struct Timer {
        double due = 0;
        double interval = 0;  // 0: one-shot
        double tolerance = 0;
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

    double wallStart_;
    double now_ = 0;
    std::uint64_t nextId_ = 1;
    std::map<std::uint64_t, Timer> timers_;
    std::map<std::uint64_t, Watcher> watchers_;
    std::map<std::uint64_t, std::shared_ptr<Task>> wakeObservers_;
    std::map<std::uint64_t, std::pair<int, std::shared_ptr<Task>>> readables_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);

    mutable std::mutex mutex_;  // guards the posted queue and the stop flag
    std::condition_variable posted_;
    std::vector<Task> queue_;
    bool stopped_ = false;
};

}  // namespace kestrow
