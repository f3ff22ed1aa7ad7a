// The one loop that runs the application's work on its main thread: tasks posted from any thread,
// repeating timers, one-shot delays, folder write events and the machine's wake from sleep.
//
// Everything except `post` and `stop` is called on the loop's own thread, and every callback runs
// there, so the state the callbacks touch needs no locks. Timers and delays count on a continuous
// clock that keeps running while the machine sleeps: a delay of 10 s that spans a sleep of an hour
// fires on wake, not an hour late.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Status.hpp"
#include "Time.hpp"

namespace kestrow {

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
    virtual Token after(Seconds delay, Task task) = 0;
    // Fires every `interval`; the loop may move a firing by up to `tolerance` to save power.
    virtual Token repeat(Seconds interval, Seconds tolerance, Task task) = 0;
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

    virtual ContinuousTime now() const = 0;  // the continuous clock the timers count on
    virtual WallTime wallClock() const = 0;

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
    // The clock that stops while the machine sleeps (CLOCK_MONOTONIC, which `steady_clock` reads).
    using MonotonicTime = std::chrono::time_point<std::chrono::steady_clock, Seconds>;

    explicit WakeDetector(Seconds threshold = Seconds(1)) : threshold_(threshold) {}
    // True when the machine slept since the previous readings for longer than the threshold.
    bool sample(ContinuousTime continuous, MonotonicTime monotonic);

private:
    Seconds threshold_;
    std::optional<Seconds> lastGap_;
};

}  // namespace kestrow
