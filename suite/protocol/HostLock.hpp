// Elects the suite's host: an exclusive advisory lock on "host.lock" in every suite folder, waited for
// on a thread of its own. When the host quits or releases, the kernel drops its locks and one of the
// waiting processes wins, so hand-over needs no messages.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kestrow::suite {

struct HostLockTiming {
    // How often a waiter tries again while another process holds the lock: the longest a hand-over
    // can take.
    std::chrono::milliseconds poll{250};
    // How long to wait after a lock file could not be opened or locked.
    std::chrono::milliseconds retry{5000};
    // How often a holder's thread wakes to check that every path still names the file it holds. An
    // owner that calls checkHeldHere on wakes of its own may make this a rare backstop.
    std::chrono::milliseconds heldCheck{5000};
    // For tests: runs on the lock's thread after each lock file was opened and before it is locked,
    // the moment at which another process may replace the file.
    std::function<void(const std::string& path)> afterOpen;
};

class HostLock {
public:
    using Timing = HostLockTiming;

    explicit HostLock(const std::string& url, Timing timing = {});
    // Standardized, without duplicates, in ascending path order: every process takes the same locks
    // in the same order, so two processes that see the same folders cannot deadlock.
    explicit HostLock(const std::vector<std::string>& urls, Timing timing = {});
    // The same, each lock file reached through a descriptor of the folder that holds it (paired
    // with the lock file's path; the lock keeps a duplicate): the file is opened, created and
    // checked inside that very folder, whatever its path names by then.
    HostLock(const std::vector<std::pair<std::string, int>>& urlsInFolders, Timing timing = {});
    // Releases, then waits for the lock's thread to end (it notices at once), so nothing outlives the
    // object. onAcquire and onLose must therefore not wait on the thread that destroys the lock.
    ~HostLock();
    HostLock(const HostLock&) = delete;
    HostLock& operator=(const HostLock&) = delete;

    const std::vector<std::string>& urls() const { return urls_; }
    [[nodiscard]] bool isHeld() const;
    // How many tries so far did not yield a lock (another holder, or a file that could not be opened
    // or locked): shows that this lock is really competing.
    [[nodiscard]] std::uint64_t failedTries() const;

    // Starts waiting; onAcquire is called on the lock's thread when every lock is held. A second call,
    // or a call with no URLs, does nothing.
    void start(std::function<void()> onAcquire);
    // The same, and onLose is called on the lock's thread when a held lock file was deleted or replaced
    // (someone else may lock the new file): this lock then lets go, competes again, and calls onAcquire
    // again when it wins. Without such a replacement onAcquire is called at most once.
    void start(std::function<void()> onAcquire, std::function<void()> onLose);
    // The same, and onCannotOpen is called on the lock's thread, with the error number, each time a
    // lock file could not be opened (its folder gone, say), before the wait to try again.
    void start(std::function<void()> onAcquire, std::function<void()> onLose,
               std::function<void(int error)> onCannotOpen);
    // Something may have happened to a lock file's name (the folder watch saw it change): a holder
    // checks at once that every path still names the file it holds, and a waiter that is pausing
    // after a failure tries again at once (one waiting behind another holder keeps its pace). From
    // any thread.
    void checkNow();
    // The holder's check, made on the calling thread: a look per lock file and no wake of the lock's
    // thread, unless a path no longer names the file held, when it is told as by checkNow. Does
    // nothing while the lock is not held. From any thread.
    void checkHeldHere();
    // Gives up hosting or stops waiting; from any thread, any number of times. A released lock stays
    // released: to compete again, make a new one.
    void release();

    [[nodiscard]] static bool isSameFile(int fd, const std::string& path);

private:
    struct State {
        std::mutex mutex;
        std::condition_variable wake;  // cuts a pause short when released or asked to check
        std::uint64_t checkRequests = 0;
        bool started = false;
        std::vector<int> fds;  // in the order of urls
        bool held = false;
        bool cancelled = false;
        std::uint64_t failedTries = 0;
    };
    struct Callbacks {
        std::function<void()> onAcquire;
        std::function<void()> onLose;
        std::function<void(int)> onCannotOpen;
    };

    // Folder descriptors by lock file path, closed when the last user (the object or its thread) goes.
    struct Folders {
        std::map<std::string, int> byURL;
        Folders() = default;
        Folders(const Folders&) = delete;
        Folders& operator=(const Folders&) = delete;
        ~Folders();
        int at(const std::string& url) const;  // -1 when the lock file is reached by its path
    };
    using SharedFolders = std::shared_ptr<const Folders>;

    static void run(std::shared_ptr<State> state, std::vector<std::string> urls, SharedFolders folders, Timing timing,
                    Callbacks callbacks);
    static bool acquireAll(State& state, const std::vector<std::string>& urls, const Folders& folders,
                           const Timing& timing, const Callbacks& callbacks);
    static bool holdWhileSame(State& state, const std::vector<std::string>& urls, const Folders& folders,
                              const Timing& timing);
    static int waitFor(State& state, const std::string& path, int folder, const Timing& timing,
                       const Callbacks& callbacks);
    // isSameFile, looking the name up in the held folder when there is one.
    static bool isSameFileIn(int fd, const std::string& path, int folder);
    // The first path that no longer names the file held for it; empty when all do. Under the mutex.
    static std::string firstReplaced(const State& state, const std::vector<std::string>& urls, const Folders& folders);
    // Sleeps for the interval, or until released or (with `requests`) asked to check again since
    // `requests` was read; false when released.
    static bool pause(State& state, std::chrono::milliseconds interval, std::optional<std::uint64_t> requests);

    std::vector<std::string> urls_;
    SharedFolders folders_ = std::make_shared<const Folders>();
    Timing timing_;
    std::shared_ptr<State> state_;
    std::thread thread_;
};

}  // namespace kestrow::suite
