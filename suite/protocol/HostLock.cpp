#include "HostLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/Files.hpp"
#include "base/Log.hpp"
#include "base/ThreadSupport.hpp"

namespace kestrow::suite {

namespace {
constexpr const char* logCategory = "suite.lock";

std::string baseName(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

void closeAll(std::vector<int>& fds) {
    for (const int fd : fds) ::close(fd);
    fds.clear();
}
}  // namespace

HostLock::HostLock(const std::string& url, Timing timing) : HostLock(std::vector<std::string>{url}, timing) {}

HostLock::HostLock(const std::vector<std::string>& urls, Timing timing)
    : timing_(timing),
      state_(std::make_shared<State>()) {
    for (const std::string& url : urls) urls_.push_back(standardizePath(url));
    std::sort(urls_.begin(), urls_.end());
    urls_.erase(std::unique(urls_.begin(), urls_.end()), urls_.end());
}

HostLock::HostLock(const std::vector<std::pair<std::string, int>>& urlsInFolders, Timing timing)
    : timing_(timing),
      state_(std::make_shared<State>()) {
    auto folders = std::make_shared<Folders>();
    for (const auto& [url, folder] : urlsInFolders) {
        const std::string path = standardizePath(url);
        if (folders->byURL.count(path)) continue;
        urls_.push_back(path);
        folders->byURL[path] = folder >= 0 ? ::fcntl(folder, F_DUPFD_CLOEXEC, 0) : -1;
    }
    std::sort(urls_.begin(), urls_.end());
    folders_ = std::move(folders);
}

HostLock::Folders::~Folders() {
    for (const auto& [url, fd] : byURL)
        if (fd >= 0) ::close(fd);
}

int HostLock::Folders::at(const std::string& url) const {
    const auto it = byURL.find(url);
    return it == byURL.end() ? -1 : it->second;
}

HostLock::~HostLock() {
    release();
    if (!thread_.joinable()) return;
    // A callback that drops the last reference runs on the lock's own thread, which cannot join itself;
    // it ends by itself right after, and the state it uses is shared, so letting it go is safe.
    if (thread_.get_id() == std::this_thread::get_id()) thread_.detach();
    else thread_.join();
}

bool HostLock::isHeld() const {
    std::lock_guard lock(state_->mutex);
    return state_->held;
}

std::uint64_t HostLock::failedTries() const {
    std::lock_guard lock(state_->mutex);
    return state_->failedTries;
}

void HostLock::start(std::function<void()> onAcquire) { start(std::move(onAcquire), nullptr); }

void HostLock::start(std::function<void()> onAcquire, std::function<void()> onLose) {
    start(std::move(onAcquire), std::move(onLose), nullptr);
}

void HostLock::start(std::function<void()> onAcquire, std::function<void()> onLose,
                     std::function<void(int)> onCannotOpen) {
    {
        std::lock_guard lock(state_->mutex);
        if (state_->started) return;
        state_->started = true;
    }
    if (urls_.empty()) return;
    thread_ = std::thread(run, state_, urls_, folders_, timing_,
                          Callbacks{std::move(onAcquire), std::move(onLose), std::move(onCannotOpen)});
}

void HostLock::run(std::shared_ptr<State> state, std::vector<std::string> urls, SharedFolders folders, Timing timing,
                   Callbacks callbacks) {
    thread::nameCurrent("KestrowSuite.HostLock");
    thread::markCurrentAsUtility();
    for (;;) {
        if (!acquireAll(*state, urls, *folders, timing, callbacks)) return;
        if (callbacks.onAcquire) callbacks.onAcquire();
        if (!holdWhileSame(*state, urls, *folders, timing)) return;
        if (callbacks.onLose) callbacks.onLose();
    }
}

// Takes every lock in order; false when released meanwhile (whatever was obtained is closed then).
bool HostLock::acquireAll(State& state, const std::vector<std::string>& urls, const Folders& folders,
                          const Timing& timing, const Callbacks& callbacks) {
    for (const std::string& url : urls) {
        const int fd = waitFor(state, url, folders.at(url), timing, callbacks);
        if (fd < 0) return false;
        std::lock_guard lock(state.mutex);
        if (state.cancelled) {
            ::close(fd);
            return false;
        }
        state.fds.push_back(fd);
    }
    std::lock_guard lock(state.mutex);
    if (state.cancelled) return false;
    state.held = true;
    return true;
}

// While held, checks on the retry cadence, and at once when asked to, that every path still names the
// file whose lock we hold. If one was deleted or replaced, a newcomer can lock the new file and host
// too, so we let go of everything and compete again. Returns false when released, true when the
// locks were let go.
bool HostLock::holdWhileSame(State& state, const std::vector<std::string>& urls, const Folders& folders,
                             const Timing& timing) {
    // Looks first, then waits: a request made while the lock was being won (before this thread got
    // here) was made after the change it is about, so this first look answers it.
    std::uint64_t requests = 0;
    for (bool first = true;; first = false) {
        if (!first && !pause(state, timing.heldCheck, requests)) return false;
        std::vector<int> dropped;
        std::string replaced;
        {
            // Under the mutex the descriptors cannot be closed by release(), so their numbers are ours.
            std::lock_guard lock(state.mutex);
            if (state.cancelled) return false;
            // A request that comes in while we look is answered by the next look, not lost.
            requests = state.checkRequests;
            replaced = firstReplaced(state, urls, folders);
            if (replaced.empty()) continue;
            state.held = false;
            dropped.swap(state.fds);
        }
        closeAll(dropped);
        log::kit::error(logCategory, replaced + " was deleted or replaced while held; competing again");
        return true;
    }
}

// Waits for one lock: a non-blocking try, then an interruptible pause, so release() ends the wait at
// once and no thread is ever stuck in the kernel behind another process.
int HostLock::waitFor(State& state, const std::string& path, int folder, const Timing& timing,
                      const Callbacks& callbacks) {
    // One line per wait and kind of failure: a folder that stays unwritable must not flood the log.
    bool loggedOpen = false, loggedLock = false;
    auto logOnce = [&path](bool& logged, const char* what, int error) {
        if (logged) return;
        logged = true;
        log::kit::error(logCategory, std::string("cannot ") + what + " " + path + ": errno " + std::to_string(error) +
                                         "; retrying every 5 s");
    };
    auto failedTry = [&state] {
        std::lock_guard lock(state.mutex);
        ++state.failedTries;
    };
    for (;;) {
        std::uint64_t requests = 0;
        {
            std::lock_guard lock(state.mutex);
            if (state.cancelled) return -1;
            requests = state.checkRequests;
        }
        // Read-only is enough for an advisory lock, and closing a descriptor opened for writing would
        // tell every member's folder watch that the lock file changed, a few times a second per waiter.
        const int flags = O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
        const int fd =
            folder >= 0 ? ::openat(folder, baseName(path).c_str(), flags, 0600) : ::open(path.c_str(), flags, 0600);
        if (fd < 0) {
            const int error = errno;
            logOnce(loggedOpen, "open", error);
            failedTry();
            if (callbacks.onCannotOpen) callbacks.onCannotOpen(error);
            if (!pause(state, timing.retry, requests)) return -1;
            continue;
        }
        if (timing.afterOpen) timing.afterOpen(path);
        int result;
        do {
            result = ::flock(fd, LOCK_EX | LOCK_NB);
        } while (result != 0 && errno == EINTR);
        if (result != 0) {
            const int error = errno;
            ::close(fd);
            failedTry();
            if (error == EWOULDBLOCK) {
                // Another process holds it: a request to check does not hurry this poll.
                if (!pause(state, timing.poll, std::nullopt)) return -1;
                continue;
            }
            logOnce(loggedLock, "lock", error);
            if (!pause(state, timing.retry, requests)) return -1;
            continue;
        }
        // The file may have been deleted or replaced since we opened it; a lock on it elects nobody.
        if (!isSameFileIn(fd, path, folder)) {
            ::close(fd);
            continue;
        }
        return fd;
    }
}

bool HostLock::pause(State& state, std::chrono::milliseconds interval, std::optional<std::uint64_t> requests) {
    std::unique_lock lock(state.mutex);
    state.wake.wait_for(lock, interval,
                        [&] { return state.cancelled || (requests && state.checkRequests != *requests); });
    return !state.cancelled;
}

void HostLock::checkNow() {
    {
        std::lock_guard lock(state_->mutex);
        ++state_->checkRequests;
    }
    state_->wake.notify_all();
}

void HostLock::checkHeldHere() {
    {
        std::lock_guard lock(state_->mutex);
        if (!state_->held || firstReplaced(*state_, urls_, *folders_).empty()) return;
    }
    // The lock's thread looks again and lets go, so that losing goes one way only.
    checkNow();
}

void HostLock::release() {
    std::vector<int> fds;
    {
        std::lock_guard lock(state_->mutex);
        state_->held = false;
        state_->cancelled = true;
        fds.swap(state_->fds);
    }
    state_->wake.notify_all();
    closeAll(fds);
}

std::string HostLock::firstReplaced(const State& state, const std::vector<std::string>& urls, const Folders& folders) {
    for (std::size_t k = 0; k < state.fds.size() && k < urls.size(); ++k)
        if (!isSameFileIn(state.fds[k], urls[k], folders.at(urls[k]))) return urls[k];
    return {};
}

bool HostLock::isSameFileIn(int fd, const std::string& path, int folder) {
    if (folder < 0) return isSameFile(fd, path);
    struct stat open {
    }, named{};
    if (::fstat(fd, &open) != 0 || ::fstatat(folder, baseName(path).c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

bool HostLock::isSameFile(int fd, const std::string& path) {
    struct stat open {
    }, named{};
    if (::fstat(fd, &open) != 0 || ::lstat(path.c_str(), &named) != 0) return false;
    return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

}  // namespace kestrow::suite
