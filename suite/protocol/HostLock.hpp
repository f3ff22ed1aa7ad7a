// Elects the suite's host: an exclusive advisory lock on "host.lock" in every suite folder, waited for
// on a thread of its own. When the host quits or releases, the kernel drops its locks and one of the
// waiting processes wins, so hand-over needs no messages.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kestrow::suite {

class HostLock {
public:
    explicit HostLock(const std::string& url);
    // Standardized, without duplicates, in ascending path order: every process takes the same locks
    // in the same order, so two processes that see the same folders cannot deadlock.
    explicit HostLock(const std::vector<std::string>& urls);
    ~HostLock();  // releases nothing by itself; callers release before they let go
    HostLock(const HostLock&) = delete;
    HostLock& operator=(const HostLock&) = delete;

    const std::vector<std::string>& urls() const { return urls_; }
    bool isHeld() const;

    // Starts waiting; onAcquire is called at most once, on the lock's thread, when every lock is held.
    // A second call, or a call with no URLs, does nothing.
    void start(std::function<void()> onAcquire);
    // Gives up hosting or stops waiting; from any thread, any number of times.
    void release();

    static bool isSameFile(int fd, const std::string& path);

private:
    struct State {
        std::mutex mutex;
        std::condition_variable wake;  // cuts a retry pause short when released
        bool started = false;
        std::vector<int> fds;
        bool held = false;
        bool cancelled = false;
    };

    static void run(std::shared_ptr<State> state, std::vector<std::string> urls, std::function<void()> onAcquire);
    static int waitFor(State& state, const std::string& path);

    std::vector<std::string> urls_;
    std::shared_ptr<State> state_;
};

}  // namespace kestrow::suite
