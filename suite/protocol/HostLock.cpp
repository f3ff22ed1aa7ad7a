#include "HostLock.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "base/Files.hpp"
#include "base/Log.hpp"

namespace kestrow::suite {

namespace {
constexpr auto retryInterval = std::chrono::seconds(5);
constexpr const char* logCategory = "suite.lock";
}  // namespace

HostLock::HostLock(const std::string& url) : HostLock(std::vector<std::string>{url}) {}

HostLock::HostLock(const std::vector<std::string>& urls) : state_(std::make_shared<State>()) {
    for (const std::string& url : urls) urls_.push_back(standardizePath(url));
    std::sort(urls_.begin(), urls_.end());
    urls_.erase(std::unique(urls_.begin(), urls_.end()), urls_.end());
}

HostLock::~HostLock() = default;

bool HostLock::isHeld() const {
    std::lock_guard lock(state_->mutex);
    return state_->held;
}

void HostLock::start(std::function<void()> onAcquire) {
    {
        std::lock_guard lock(state_->mutex);
        if (state_->started) return;
        state_->started = true;
    }
    if (urls_.empty()) return;
    // The thread owns a share of the state, so it may outlive this object without touching freed memory.
    std::thread(run, state_, urls_, std::move(onAcquire)).detach();
}

void HostLock::run(std::shared_ptr<State> state, std::vector<std::string> urls, std::function<void()> onAcquire) {
#if defined(__APPLE__)
    pthread_setname_np("KestrowSuite.HostLock");
    pthread_set_qos_class_self_np(QOS_CLASS_UTILITY, 0);
#else
    pthread_setname_np(pthread_self(), "KestrowSuite.Ho");  // Linux allows 15 characters
#endif
    for (const std::string& url : urls) {
        const int fd = waitFor(*state, url);
        if (fd < 0) return;
        std::lock_guard lock(state->mutex);
        if (state->cancelled) {
            ::close(fd);
            return;
        }
        state->fds.push_back(fd);
    }
    {
        std::lock_guard lock(state->mutex);
        if (state->cancelled) return;
        state->held = true;
    }
    if (onAcquire) onAcquire();
}

int HostLock::waitFor(State& state, const std::string& path) {
    // One line per wait and kind of failure: a folder that stays unwritable must not flood the log.
    bool loggedOpen = false, loggedLock = false;
    auto logOnce = [&path](bool& logged, const char* what, int error) {
        if (logged) return;
        logged = true;
        log::kit::error(logCategory, std::string("cannot ") + what + " " + path + ": errno " + std::to_string(error) +
                                    "; retrying every 5 s");
    };
    auto pause = [&state] {
        std::unique_lock lock(state.mutex);
        state.wake.wait_for(lock, retryInterval, [&state] { return state.cancelled; });
    };
    for (;;) {
        {
            std::lock_guard lock(state.mutex);
            if (state.cancelled) return -1;
        }
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) {
            logOnce(loggedOpen, "open", errno);
            pause();
            continue;
        }
        int result;
        do {
            result = ::flock(fd, LOCK_EX);
        } while (result != 0 && errno == EINTR);
        if (result != 0) {
            const int error = errno;
            ::close(fd);
            logOnce(loggedLock, "lock", error);
            pause();
            continue;
        }
        // The file may have been deleted or replaced while we waited; a lock on it elects nobody.
        if (!isSameFile(fd, path)) {
            ::close(fd);
            continue;
        }
        return fd;
    }
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
    for (const int fd : fds) ::close(fd);
}

bool HostLock::isSameFile(int fd, const std::string& path) {
    struct stat open{}, named{};
    if (::fstat(fd, &open) != 0 || ::lstat(path.c_str(), &named) != 0) return false;
    return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

}  // namespace kestrow::suite
