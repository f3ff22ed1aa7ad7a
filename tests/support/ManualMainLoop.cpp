#include "ManualMainLoop.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "base/Files.hpp"

namespace kestrow {

namespace {
enum Kind { timerKind, watcherKind, wakeKind, readableKind };
constexpr Seconds shortestInterval = std::chrono::milliseconds(1);  // zero would fire forever without time passing
}  // namespace

ManualMainLoop::ManualMainLoop(WallTime wallStart) : wallStart_(wallStart) {}

ManualMainLoop::~ManualMainLoop() { guard_.invalidate(); }

MainLoop::Token ManualMainLoop::tokenFor(std::uint64_t id, int kind) {
    return Token([alive = guard_.weak(), this, id, kind] {
        if (!alive) return;
        if (kind == timerKind) timers_.erase(id);
        else if (kind == watcherKind) watchers_.erase(id);
        else if (kind == readableKind) readables_.erase(id);
        else wakeObservers_.erase(id);
    });
}

void ManualMainLoop::post(Task task) {
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(task));
    }
    posted_.notify_all();
}

MainLoop::Token ManualMainLoop::after(Seconds delay, Task task) {
    const std::uint64_t id = nextId_++;
    timers_[id] = Timer{now_ + std::max(Seconds::zero(), delay), Seconds::zero(), Seconds::zero(),
                        std::make_shared<Task>(std::move(task))};
    return tokenFor(id, timerKind);
}

MainLoop::Token ManualMainLoop::repeat(Seconds interval, Seconds tolerance, Task task) {
    const std::uint64_t id = nextId_++;
    interval = std::max(interval, shortestInterval);
    timers_[id] = Timer{now_ + interval, interval, tolerance, std::make_shared<Task>(std::move(task))};
    return tokenFor(id, timerKind);
}

// The analyzer loses the token's cancel function on its way into the returned Watch and reports it
// as leaked; the token owns it like every other token this loop hands out.
// NOLINTBEGIN(clang-analyzer-cplusplus.NewDeleteLeaks)
MainLoop::Watch ManualMainLoop::watchFolder(const std::string& path, Task onChange, NameFilter ignored, Task onGone) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0)
        return {Token(), Status::failure("cannot watch " + path + " (errno " + std::to_string(errno) + ")")};
    if (!S_ISDIR(st.st_mode)) return {Token(), Status::failure("cannot watch " + path + " (not a folder)")};
    const std::uint64_t id = nextId_++;
    watchers_[id] = Watcher{standardizePath(path), std::make_shared<Task>(std::move(onChange)), std::move(ignored),
                            onGone ? std::make_shared<Task>(std::move(onGone)) : nullptr};
    return {tokenFor(id, watcherKind), Status::success()};
}
// NOLINTEND(clang-analyzer-cplusplus.NewDeleteLeaks)

MainLoop::Token ManualMainLoop::onWake(Task task) {
    const std::uint64_t id = nextId_++;
    wakeObservers_[id] = std::make_shared<Task>(std::move(task));
    return tokenFor(id, wakeKind);
}

MainLoop::Token ManualMainLoop::watchReadable(int fd, Task onReadable) {
    const std::uint64_t id = nextId_++;
    readables_[id] = {fd, std::make_shared<Task>(std::move(onReadable))};
    return tokenFor(id, readableKind);
}

bool ManualMainLoop::descriptorReadable(int fd) {
    std::vector<std::shared_ptr<Task>> tasks;
    for (const auto& [id, watch] : readables_)
        if (watch.first == fd) tasks.push_back(watch.second);
    for (const auto& task : tasks) (*task)();
    runPending();
    return !tasks.empty();
}

bool ManualMainLoop::runOne() {
    Task task;
    {
        std::lock_guard lock(mutex_);
        if (queue_.empty()) return false;
        task = std::move(queue_.front());
        queue_.erase(queue_.begin());
    }
    task();
    return true;
}

void ManualMainLoop::runPending() {
    while (runOne()) {}
}

void ManualMainLoop::run() {
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            posted_.wait(lock, [this] { return stopped_ || !queue_.empty(); });
            if (stopped_) {
                stopped_ = false;
                return;
            }
        }
        runOne();
    }
}

void ManualMainLoop::stop() {
    {
        std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    posted_.notify_all();
}

bool ManualMainLoop::runUntil(const std::function<bool()>& done, Seconds realTime) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(realTime);
    for (;;) {
        // Stop at the first task after which the condition holds, so later posts (a worker's
        // result that raced in) are still waiting when the caller looks.
        while (runOne()) {
            if (done()) return true;
        }
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        // `done` may turn true on another thread without a post: look again every 10 ms.
        const auto slice = std::min(deadline, std::chrono::steady_clock::now() + std::chrono::milliseconds(10));
        std::unique_lock lock(mutex_);
        posted_.wait_until(lock, slice, [this] { return !queue_.empty(); });
    }
}

void ManualMainLoop::fireTimer(std::uint64_t id) {
    auto it = timers_.find(id);
    if (it == timers_.end()) return;
    std::shared_ptr<Task> task = it->second.task;  // the task may cancel its own timer
    if (it->second.interval > Seconds::zero()) {
        it->second.due += it->second.interval;
        if (it->second.due <= now_) it->second.due = now_ + it->second.interval;  // after a sleep
    } else {
        timers_.erase(it);
    }
    (*task)();
}

void ManualMainLoop::advance(Seconds length) {
    const ContinuousTime target = now_ + std::max(Seconds::zero(), length);
    for (;;) {
        runPending();
        std::uint64_t next = 0;
        ContinuousTime due = ContinuousTime::max();
        for (const auto& [id, timer] : timers_)
            if (timer.due < due) {
                due = timer.due;
                next = id;
            }
        if (next == 0 || due > target) break;
        now_ = std::max(now_, due);
        fireTimer(next);
    }
    now_ = target;
    runPending();
}

void ManualMainLoop::sleep(Seconds length) {
    now_ += std::max(Seconds::zero(), length);
    std::vector<std::shared_ptr<Task>> observers;
    for (const auto& [id, task] : wakeObservers_) observers.push_back(task);
    for (const auto& task : observers) (*task)();
    runPending();
    std::vector<std::uint64_t> overdue;
    for (const auto& [id, timer] : timers_)
        if (timer.due <= now_) overdue.push_back(id);
    std::sort(overdue.begin(), overdue.end(),
              [this](std::uint64_t a, std::uint64_t b) { return timers_[a].due < timers_[b].due; });
    for (const std::uint64_t id : overdue) {
        fireTimer(id);
        runPending();
    }
}

void ManualMainLoop::folderChanged(const std::string& path, const std::vector<std::string>& names) {
    const std::string key = standardizePath(path);
    std::vector<std::shared_ptr<Task>> tasks;
    for (const auto& entry : watchers_) {
        const Watcher& watcher = entry.second;
        if (watcher.path != key) continue;
        const bool allIgnored =
            !names.empty() && watcher.ignored &&
            std::all_of(names.begin(), names.end(), [&](const std::string& name) { return watcher.ignored(name); });
        if (!allIgnored) tasks.push_back(watcher.task);
    }
    for (const auto& task : tasks) (*task)();
    runPending();
}

void ManualMainLoop::folderGone(const std::string& path) {
    const std::string key = standardizePath(path);
    std::vector<std::shared_ptr<Task>> tasks;
    for (auto it = watchers_.begin(); it != watchers_.end();) {
        if (it->second.path != key) {
            ++it;
            continue;
        }
        tasks.push_back(it->second.gone ? it->second.gone : it->second.task);
        it = watchers_.erase(it);
    }
    for (const auto& task : tasks) (*task)();
    runPending();
}

std::vector<ManualMainLoop::TimerInfo> ManualMainLoop::repeatingTimers() const {
    std::vector<TimerInfo> out;
    for (const auto& [id, timer] : timers_)
        if (timer.interval > Seconds::zero()) out.push_back({timer.interval, timer.tolerance, timer.due});
    return out;
}

std::vector<std::string> ManualMainLoop::watchedFolders() const {
    std::vector<std::string> out;
    for (const auto& [id, watcher] : watchers_) out.push_back(watcher.path);
    return out;
}

}  // namespace kestrow
