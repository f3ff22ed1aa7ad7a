// The Linux main loop: one epoll set over an eventfd (posted tasks), one timerfd on CLOCK_BOOTTIME
// (so waits count time asleep) armed for the earliest of all timers, one inotify descriptor for every
// watched folder, the callers' descriptors watched for reading, and a signalfd that turns SIGINT,
// SIGTERM and SIGHUP into a clean stop.
#include "../MainLoop.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <deque>
#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "../Files.hpp"
#include "../WeakGuard.hpp"

namespace kestrow {

namespace {

// The shortest repeat: a zero interval would fire without end.
constexpr Seconds shortestInterval = std::chrono::milliseconds(1);

std::string errnoText(const char* what, int error) {
    return std::string(what) + " (errno " + std::to_string(error) + ")";
}

// Entries added, removed, renamed or rewritten in place; and the folder itself going away.
constexpr std::uint32_t watchMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_ATTRIB |
                                    IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// What ends a watch: the folder deleted or moved away, its file system unmounted, the watch removed.
constexpr std::uint32_t goneMask = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

constexpr std::uint64_t postedKey = 0, inotifyKey = 1, signalKey = 2, timerKey = 3, firstSourceKey = 16;

constexpr std::int64_t disarmed = std::numeric_limits<std::int64_t>::max();

class EpollMainLoop final : public MainLoop {
public:
    explicit EpollMainLoop(bool handleSignals) {
        epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
        posted_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        add(posted_, postedKey);
        if (handleSignals) {
            sigset_t set;
            sigemptyset(&set);
            sigaddset(&set, SIGINT);
            sigaddset(&set, SIGTERM);
            sigaddset(&set, SIGHUP);  // the terminal it ran in was closed
            if (::pthread_sigmask(SIG_BLOCK, &set, &previousMask_) == 0) {
                maskChanged_ = true;
                signals_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
                if (signals_ >= 0) add(signals_, signalKey);
            }
        }
        // Probe once: kernels before 3.15 refuse timerfds on CLOCK_BOOTTIME.
        timers_ = ::timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC);
        if (timers_ < 0) {
            timerClock_ = CLOCK_MONOTONIC;
            timers_ = ::timerfd_create(timerClock_, TFD_NONBLOCK | TFD_CLOEXEC);
        }
        // Without it (no descriptor left) nothing will fire, as with cancelled timers.
        if (timers_ >= 0) add(timers_, timerKey);
    }

    ~EpollMainLoop() override {
        guard_.invalidate();
        if (timers_ >= 0) ::close(timers_);
        if (inotify_ >= 0) ::close(inotify_);
        if (signals_ >= 0) ::close(signals_);
        if (maskChanged_) ::pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
        ::close(posted_);
        ::close(epoll_);
    }

    void post(Task task) override {
        {
            std::lock_guard lock(mutex_);
            queue_.push_back(std::move(task));
        }
        // A task posted by the loop's own thread runs once this turn's events are handled, without
        // a round trip through the eventfd; another thread has to wake the loop.
        if (std::this_thread::get_id() == runningThread_.load()) postedHere_ = true;
        else wakeUp();
    }

    Token after(Seconds delay, Task task) override {
        return addTimer(delay, Seconds::zero(), Seconds::zero(), std::move(task));
    }

    Token repeat(Seconds interval, Seconds tolerance, Task task) override {
        interval = std::max(interval, shortestInterval);
        return addTimer(interval, interval, std::clamp(tolerance, Seconds::zero(), interval), std::move(task));
    }

    // The analyzer loses the token's cancel function on its way into the returned Watch and reports
    // it as leaked; the token owns it like every other token this loop hands out.
    // NOLINTBEGIN(clang-analyzer-cplusplus.NewDeleteLeaks)
    Watch watchFolder(const std::string& path, Task onChange, NameFilter ignored, Task onGone) override {
        if (inotify_ < 0) {
            inotify_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
            if (inotify_ < 0) return {Token(), Status::failure(errnoText(("cannot watch " + path).c_str(), errno))};
            add(inotify_, inotifyKey);
        }
        const int wd = ::inotify_add_watch(inotify_, path.c_str(), watchMask);
        if (wd < 0) return {Token(), Status::failure(errnoText(("cannot watch " + path).c_str(), errno))};
        const std::uint64_t key = nextKey_++;
        Source& source = sources_[key];
        source.wd = wd;
        source.task = std::make_shared<Task>(std::move(onChange));
        source.ignored = std::move(ignored);
        if (onGone) source.gone = std::make_shared<Task>(std::move(onGone));
        watchers_[wd].insert(key);
        return {tokenFor(key), Status::success()};
    }
    // NOLINTEND(clang-analyzer-cplusplus.NewDeleteLeaks)

    Token onWake(Task task) override {
        const std::uint64_t key = nextKey_++;
        Source source;
        source.wake = true;
        source.task = std::make_shared<Task>(std::move(task));
        sources_.emplace(key, std::move(source));
        return tokenFor(key);
    }

    Token watchReadable(int fd, Task onReadable) override {
        const std::uint64_t key = nextKey_++;
        Source source;
        source.readable = fd;
        source.task = std::make_shared<Task>(std::move(onReadable));
        sources_.emplace(key, std::move(source));
        add(fd, key);
        return tokenFor(key);
    }

    ContinuousTime now() const override { return ContinuousClock::now(); }
    WallTime wallClock() const override { return WallClock::now(); }

    void run() override {
        epoll_event events[32];
        runningThread_.store(std::this_thread::get_id());
        while (!stopping_.load()) {
            if (postedHere_) {
                postedHere_ = false;
                runQueued();
                if (stopping_.load()) break;
            }
            // Tasks that posted more still let the other sources have their turn: a look, no wait.
            const int n = ::epoll_wait(epoll_, events, 32, postedHere_ ? 0 : -1);
            if (n < 0) {
                if (errno == EINTR) continue;
                break;  // only a broken epoll set gets here; nothing sensible is left to wait on
            }
            if (wakes_.sample(ContinuousClock::now(), std::chrono::steady_clock::now())) fireWakeObservers();
            for (int i = 0; i < n && !stopping_.load(); ++i) dispatch(events[i].data.u64);
            // Whatever woke the loop, timers that came due ride along: one allowed to fire late
            // then does not wake the machine again a moment later.
            if (!stopping_.load()) fireDueTimers();
        }
        runningThread_.store(std::thread::id());
        // What this thread posted and did not get to run waits for a later run, as the eventfd's do.
        if (std::exchange(postedHere_, false)) wakeUp();
        stopping_.store(false);
    }

    void stop() override {
        stopping_.store(true);
        wakeUp();
    }

private:
    struct Source {
        bool timer = false;
        std::int64_t deadline = 0;   // of a timer, in nanoseconds on the timer clock
        std::int64_t interval = 0;   // of a repeating timer; zero for a delay
        std::int64_t tolerance = 0;  // how late a timer may fire to share a wake
        int wd = -1;                 // inotify watch
        bool wake = false;
        int readable = -1;  // a caller's descriptor, watched but never closed here
        std::shared_ptr<Task> task;
        NameFilter ignored;          // of an inotify watch
        std::shared_ptr<Task> gone;  // of an inotify watch: the folder itself went away
    };

    void add(int fd, std::uint64_t key) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = key;
        ::epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
    }

    void wakeUp() {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(posted_, &one, sizeof one);
    }

    Token tokenFor(std::uint64_t key) {
        return Token([alive = guard_.weak(), this, key] {
            if (alive) remove(key);
        });
    }

    std::int64_t timerClockNow() const {
        timespec ts{};
        ::clock_gettime(timerClock_, &ts);
        return static_cast<std::int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
    }

    static std::int64_t nanoseconds(Seconds length) {
        // Zero would be due at once, before anything else of this turn; a nanosecond keeps it behind.
        return std::max<std::int64_t>(wholeDuration<std::chrono::nanoseconds>(length).count(), 1);
    }

    // One descriptor for every timer: adding, firing and cancelling cost no descriptors of their own,
    // and the kernel is told only when a time to ring earlier than the armed one comes. A timer with
    // a tolerance is rung for at its deadline plus that tolerance, and fires at the first wake after
    // its deadline, whatever causes it: on an idle machine waking costs more than the work done.
    Token addTimer(Seconds first, Seconds interval, Seconds tolerance, Task task) {
        const std::uint64_t key = nextKey_++;
        Source source;
        source.timer = true;
        source.deadline = timerClockNow() + nanoseconds(first);
        if (interval > Seconds::zero()) source.interval = nanoseconds(interval);
        if (tolerance > Seconds::zero()) source.tolerance = nanoseconds(tolerance);
        source.task = std::make_shared<Task>(std::move(task));
        schedule(key, source);
        sources_.emplace(key, std::move(source));
        return tokenFor(key);
    }

    void schedule(std::uint64_t key, const Source& timer) {
        deadlines_.emplace(timer.deadline, key);
        const std::int64_t ring = timer.deadline + timer.tolerance;
        rings_.emplace(ring, key);
        if (ring < armedFor_) arm(ring);
    }

    static void eraseEntry(std::multimap<std::int64_t, std::uint64_t>& map, std::int64_t at, std::uint64_t key) {
        auto [first, last] = map.equal_range(at);
        for (auto it = first; it != last; ++it)
            if (it->second == key) {
                map.erase(it);
                return;
            }
    }

    void unschedule(std::uint64_t key, const Source& timer) {
        // Left armed: should it ring for nothing, the next time to ring is armed then.
        eraseEntry(deadlines_, timer.deadline, key);
        eraseEntry(rings_, timer.deadline + timer.tolerance, key);
    }

    void arm(std::int64_t deadline) {
        if (timers_ < 0) return;
        itimerspec timing{};
        timing.it_value.tv_sec = static_cast<time_t>(deadline / 1'000'000'000);
        timing.it_value.tv_nsec = static_cast<long>(deadline % 1'000'000'000);
        if (timing.it_value.tv_sec == 0 && timing.it_value.tv_nsec == 0) timing.it_value.tv_nsec = 1;
        ::timerfd_settime(timers_, TFD_TIMER_ABSTIME, &timing, nullptr);
        armedFor_ = deadline;
    }

    void timerRang() {
        std::uint64_t expirations = 0;
        [[maybe_unused]] const auto read = ::read(timers_, &expirations, sizeof expirations);
        armedFor_ = disarmed;  // an absolute one-shot setting rings once
    }

    // Runs at the end of every turn, after the ring or any other event.
    void fireDueTimers() {
        if (deadlines_.empty()) return;
        // Only what was due when the turn ended: a timer added or rescheduled by these tasks waits
        // for a later turn, so a short repeat cannot hold the loop here.
        const std::int64_t now = timerClockNow();
        while (!deadlines_.empty() && deadlines_.begin()->first <= now && !stopping_.load()) {
            const std::uint64_t key = deadlines_.begin()->second;
            auto it = sources_.find(key);
            if (it == sources_.end()) {
                deadlines_.erase(deadlines_.begin());
                continue;
            }
            Source& source = it->second;
            unschedule(key, source);
            std::shared_ptr<Task> task = source.task;
            if (source.interval > 0) {
                // Missed periods are dropped: one call, then on with the period from its start.
                const std::int64_t missed = (now - source.deadline) / source.interval;
                source.deadline += (missed + 1) * source.interval;
                deadlines_.emplace(source.deadline, key);
                rings_.emplace(source.deadline + source.tolerance, key);  // armed once, below
            } else {
                sources_.erase(it);
            }
            (*task)();
        }
        if (!rings_.empty() && rings_.begin()->first != armedFor_) arm(rings_.begin()->first);
    }

    void remove(std::uint64_t key) {
        auto it = sources_.find(key);
        if (it == sources_.end()) return;
        Source& source = it->second;
        if (source.timer) unschedule(key, source);
        if (source.readable >= 0) ::epoll_ctl(epoll_, EPOLL_CTL_DEL, source.readable, nullptr);
        if (source.wd >= 0) {
            auto& keys = watchers_[source.wd];
            keys.erase(key);
            if (keys.empty()) {
                ::inotify_rm_watch(inotify_, source.wd);
                watchers_.erase(source.wd);
            }
        }
        sources_.erase(it);
    }

    void dispatch(std::uint64_t key) {
        if (key == postedKey) return runPosted();
        if (key == signalKey) {
            signalfd_siginfo info{};
            while (::read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) stopping_.store(true);
            return;
        }
        if (key == inotifyKey) return readFolderEvents();
        if (key == timerKey) return timerRang();
        auto it = sources_.find(key);
        if (it == sources_.end() || it->second.readable < 0) return;  // cancelled earlier in this turn
        std::shared_ptr<Task> task = it->second.task;
        (*task)();
    }

    void runPosted() {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto read = ::read(posted_, &count, sizeof count);
        runQueued();
    }

    void runQueued() {
        std::deque<Task> tasks;
        {
            std::lock_guard lock(mutex_);
            tasks.swap(queue_);
        }
        while (!tasks.empty()) {
            if (stopping_.load()) {
                // What is left waits, in order, for a later run.
                std::lock_guard lock(mutex_);
                queue_.insert(queue_.begin(), std::make_move_iterator(tasks.begin()),
                              std::make_move_iterator(tasks.end()));
                wakeUp();
                return;
            }
            Task task = std::move(tasks.front());
            tasks.pop_front();
            task();
        }
    }

    void readFolderEvents() {
        alignas(inotify_event) char buffer[16384];
        std::set<std::uint64_t> touched, gone;
        for (;;) {
            const ssize_t n = ::read(inotify_, buffer, sizeof buffer);
            if (n <= 0) break;
            // A read that left room for the longest event found the queue empty: no second read to
            // hear so (epoll tells us of anything that comes later).
            const bool drained = static_cast<std::size_t>(n) + sizeof(inotify_event) + NAME_MAX + 1 <= sizeof buffer;
            for (ssize_t offset = 0; offset < n;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
                offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                if (event->mask & IN_Q_OVERFLOW) {
                    for (const auto& [wd, keys] : watchers_) touched.insert(keys.begin(), keys.end());
                    continue;
                }
                auto it = watchers_.find(event->wd);
                if (it == watchers_.end()) continue;
                if (event->mask & goneMask) {
                    // The folder was deleted, moved away or unmounted: this watch is over. A moved
                    // folder would go on reporting from its new place, so the watch is removed here;
                    // the kernel has removed it already when it says IN_IGNORED.
                    gone.insert(it->second.begin(), it->second.end());
                    for (const std::uint64_t key : it->second)
                        if (auto source = sources_.find(key); source != sources_.end()) source->second.wd = -1;
                    if (!(event->mask & IN_IGNORED)) ::inotify_rm_watch(inotify_, event->wd);
                    watchers_.erase(it);
                    continue;
                }
                const std::string_view name = event->len > 0 ? std::string_view(event->name) : std::string_view();
                for (const std::uint64_t key : it->second) {
                    auto source = sources_.find(key);
                    if (source == sources_.end()) continue;
                    if (!name.empty() && source->second.ignored && source->second.ignored(name)) continue;
                    touched.insert(key);
                }
            }
            if (drained) break;
        }
        // One call per watcher for the whole burst: an atomic write alone is a create and a rename.
        for (const std::uint64_t key : touched) {
            if (gone.count(key)) continue;
            auto it = sources_.find(key);
            if (it == sources_.end()) continue;
            std::shared_ptr<Task> task = it->second.task;
            (*task)();
        }
        for (const std::uint64_t key : gone) {
            auto it = sources_.find(key);
            if (it == sources_.end()) continue;
            std::shared_ptr<Task> task = it->second.gone ? it->second.gone : it->second.task;
            (*task)();
        }
    }

    void fireWakeObservers() {
        std::vector<std::shared_ptr<Task>> tasks;
        for (const auto& [key, source] : sources_)
            if (source.wake) tasks.push_back(source.task);
        for (const auto& task : tasks) (*task)();
    }

    int epoll_ = -1, posted_ = -1, inotify_ = -1, signals_ = -1, timers_ = -1;
    clockid_t timerClock_ = CLOCK_BOOTTIME;
    std::multimap<std::int64_t, std::uint64_t> deadlines_;  // timers' deadlines, earliest first
    std::multimap<std::int64_t, std::uint64_t> rings_;      // their deadlines plus tolerances
    std::int64_t armedFor_ = disarmed;
    sigset_t previousMask_{};
    bool maskChanged_ = false;
    std::atomic<bool> stopping_{false};
    std::atomic<std::thread::id> runningThread_{};
    bool postedHere_ = false;  // only touched by the running thread
    std::mutex mutex_;
    std::deque<Task> queue_;
    std::uint64_t nextKey_ = firstSourceKey;
    std::map<std::uint64_t, Source> sources_;
    std::map<int, std::set<std::uint64_t>> watchers_;
    WakeDetector wakes_;
    kestrow::WeakGuard guard_;
};

}  // namespace

ContinuousClock::time_point ContinuousClock::now() noexcept {
    timespec ts{};
    ::clock_gettime(CLOCK_BOOTTIME, &ts);
    return time_point(std::chrono::seconds(ts.tv_sec) + std::chrono::nanoseconds(ts.tv_nsec));
}

std::unique_ptr<MainLoop> makeSystemMainLoop(bool handleSignals) {
    return std::make_unique<EpollMainLoop>(handleSignals);
}

}  // namespace kestrow
