// Real processes competing for the host lock on real files.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "suite/protocol/HostLock.hpp"
#include "tests/support/TempFolder.hpp"

extern char** environ;

namespace kestrow::suite {
namespace {

using kestrow::testing::TempFolder;
using namespace std::chrono_literals;

// Short enough that hand-overs and replacement checks happen many times within a test.
const HostLock::Timing fast{10ms, 40ms, 40ms, {}};

template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = 5s) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return condition();
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

struct ContenderStatus {
    bool held = false;
    unsigned long long tries = 0;
    int acquired = 0;
    int lost = 0;
};

// A host_lock_contender process, spoken to through its standard input and output; its log goes to
// a file. Killed and reaped when the test lets go of it.
class Contender {
public:
    Contender(const std::string& logFile, const std::vector<std::string>& locks) : log_(logFile) {
        int in[2], out[2];
        EXPECT_EQ(::pipe2(in, O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        std::vector<std::string> args = {KESTROW_CONTENDER, std::to_string(fast.poll.count()),
                                         std::to_string(fast.retry.count())};
        args.insert(args.end(), locks.begin(), locks.end());
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        EXPECT_EQ(posix_spawn(&pid_, KESTROW_CONTENDER, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        input_ = in[1];
        output_ = out[0];
    }
    ~Contender() {
        kill();
        ::close(input_);
        ::close(output_);
    }
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;

    ContenderStatus status() {
        ContenderStatus s;
        const std::string line = ask("status");
        int held = 0;
        if (std::sscanf(line.c_str(), "held=%d tries=%llu acquired=%d lost=%d", &held, &s.tries, &s.acquired,
                        &s.lost) != 4)
            ADD_FAILURE() << "unexpected status line: " << line;
        s.held = held == 1;
        return s;
    }
    void release() {
        EXPECT_EQ(ask("release"), "released");
        released_ = true;
    }
    // The kernel drops a dead process's locks.
    void kill() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    bool alive() const { return pid_ > 0; }
    bool competing() const { return alive() && !released_; }
    std::size_t logLinesContaining(const std::string& text) const {
        std::ifstream file(log_);
        std::size_t count = 0;
        for (std::string line; std::getline(file, line);) count += line.find(text) != std::string::npos;
        return count;
    }

private:
    std::string ask(const std::string& command) {
        const std::string line = command + "\n";
        if (::write(input_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) return {};
        std::string answer;
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        for (char c = 0; c != '\n';) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd p{output_, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&p, 1, static_cast<int>(left.count())) != 1 || ::read(output_, &c, 1) != 1)
                return answer;
            if (c != '\n') answer += c;
        }
        return answer;
    }

    std::string log_;
    pid_t pid_ = -1;
    bool released_ = false;
    int input_ = -1, output_ = -1;
};

std::vector<Contender*> holders(const std::vector<Contender*>& all) {
    std::vector<Contender*> held;
    for (Contender* c : all)
        if (c->alive() && c->status().held) held.push_back(c);
    return held;
}

// Waits until every other competing contender has failed `more` further tries: each of them has then
// really competed for the lock since the call, and lost.
void othersCompeted(const std::vector<Contender*>& all, const Contender* holder, unsigned more = 3) {
    for (Contender* c : all) {
        if (c == holder || !c->competing()) continue;
        const auto start = c->status().tries;
        ASSERT_TRUE(eventually([&] { return c->status().tries >= start + more; }));
    }
}

std::size_t entries(const char* folder) {
    std::size_t count = 0;
    if (DIR* dir = ::opendir(folder)) {
        while (const dirent* entry = ::readdir(dir)) count += entry->d_name[0] != '.';
        ::closedir(dir);
    }
    return count;
}

TEST(HostLock, ExactlyOneHostAndHandOverOnReleaseAndKill) {
    TempFolder folder, logs;
    const std::string lock = folder / "host.lock";
    Contender a(logs / "a", {lock}), b(logs / "b", {lock}), c(logs / "c", {lock});
    const std::vector<Contender*> all{&a, &b, &c};

    ASSERT_TRUE(eventually([&] { return holders(all).size() == 1; }));
    Contender* first = holders(all)[0];
    othersCompeted(all, first);
    EXPECT_EQ(holders(all), std::vector{first});

    first->release();
    ASSERT_TRUE(eventually([&] { return holders(all).size() == 1 && holders(all)[0] != first; }));
    Contender* second = holders(all)[0];
    othersCompeted(all, second);
    EXPECT_EQ(holders(all), std::vector{second});  // the released one stays out

    second->kill();
    ASSERT_TRUE(eventually([&] { return holders(all).size() == 1; }));
    EXPECT_NE(holders(all)[0], first);
    EXPECT_NE(holders(all)[0], second);
}

TEST(HostLock, FoldersListedInDifferentOrdersDoNotDeadlock) {
    TempFolder one, two, logs;
    const std::string a = one / "host.lock", b = two / "host.lock";
    for (int round = 0; round < 5; ++round) {
        Contender forward(logs / "forward", {a, b});
        Contender backward(logs / "backward", {b, a, a + "/../host.lock"});
        const std::vector<Contender*> both{&forward, &backward};
        ASSERT_TRUE(eventually([&] { return holders(both).size() == 1; })) << "round " << round;
        Contender* first = holders(both)[0];
        first->release();
        ASSERT_TRUE(eventually([&] { return holders(both).size() == 1 && holders(both)[0] != first; }))
            << "round " << round;
    }
    HostLock sorted(std::vector<std::string>{b, a, a, one.path() + "/./host.lock"});
    EXPECT_EQ(sorted.urls(), (a < b ? std::vector{a, b} : std::vector{b, a}));
}

// A lock file deleted or replaced under a holder lets a newcomer lock the new file; the holder must
// notice, let go and compete again, or two processes host at once.
TEST(HostLock, AHolderLetsGoWhenItsLockFileIsDeletedOrReplaced) {
    for (const bool replace : {false, true}) {
        SCOPED_TRACE(replace ? "replaced" : "deleted");
        TempFolder folder, logs;
        const std::string lock = folder / "host.lock";
        Contender holder(logs / "holder", {lock});
        ASSERT_TRUE(eventually([&] { return holder.status().held; }));
        Contender newcomer(logs / "newcomer", {lock});
        ASSERT_TRUE(eventually([&] { return newcomer.status().tries >= 1; }));  // waiting on the old file

        if (replace) {
            kestrow::testing::writeFile(folder / "fresh.lock", "");
            ASSERT_EQ(::rename((folder / "fresh.lock").c_str(), lock.c_str()), 0);
        } else {
            ASSERT_EQ(::unlink(lock.c_str()), 0);
        }
        // The holder notices and lets go; then whoever locks the new file first hosts, alone.
        ASSERT_TRUE(eventually([&] { return holder.status().lost == 1; }));
        const std::vector<Contender*> both{&holder, &newcomer};
        ASSERT_TRUE(eventually([&] { return holders(both).size() == 1; }));
        Contender* host = holders(both)[0];
        othersCompeted(both, host);  // the other competes for the new file, and loses
        EXPECT_EQ(holders(both), std::vector{host});
        EXPECT_EQ(holder.logLinesContaining("was deleted or replaced while held"), 1u);
        EXPECT_EQ(holder.status().lost, 1);

        host->release();
        Contender* other = host == &holder ? &newcomer : &holder;
        ASSERT_TRUE(eventually([&] { return other->status().held; }));
        EXPECT_EQ(holder.status().acquired, 2);
        struct stat st {};
        EXPECT_EQ(::lstat(lock.c_str(), &st), 0);
        EXPECT_TRUE(S_ISREG(st.st_mode));
    }
}

// Waiting must end when asked, even while another process holds the lock: a participant that stops
// competing must not leave a thread and a descriptor behind until the rival quits.
TEST(HostLock, ReleaseStopsWaitingAndLeavesNothingBehind) {
    TempFolder folder, logs;
    const std::string lock = folder / "host.lock";
    Contender rival(logs / "rival", {lock});
    ASSERT_TRUE(eventually([&] { return rival.status().held; }));

    // One lock made and dropped first, so that whatever the runtime starts once for a process's first
    // thread (a sanitizer's own helper, for one) is there before counting.
    {
        HostLock first(lock, fast);
        first.start([] {});
        ASSERT_TRUE(eventually([&] { return first.failedTries() >= 1; }));
    }
    const std::size_t fds = entries("/proc/self/fd"), threads = entries("/proc/self/task");
    std::atomic<int> acquired{0};
    for (int cycle = 0; cycle < 5; ++cycle) {
        HostLock mine(lock, fast);
        mine.start([&] { ++acquired; });
        ASSERT_TRUE(eventually([&] { return mine.failedTries() >= 2; }));  // really waiting behind the rival
        if (cycle % 2 == 0) {
            mine.release();  // released, then destroyed; odd cycles are only destroyed
            EXPECT_FALSE(mine.isHeld());
        }
    }
    EXPECT_EQ(entries("/proc/self/fd"), fds);
    EXPECT_EQ(entries("/proc/self/task"), threads);

    // A lock released while waiting never wins later, even when the rival lets go.
    HostLock released(lock, fast);
    released.start([&] { ++acquired; });
    ASSERT_TRUE(eventually([&] { return released.failedTries() >= 1; }));
    released.release();
    rival.release();
    HostLock next(lock, fast);
    next.start([] {});
    ASSERT_TRUE(eventually([&] { return next.isHeld(); }));
    EXPECT_FALSE(released.isHeld());
    EXPECT_EQ(acquired.load(), 0);
}

// The suite folder's path swapped for a link to someone else's folder after the member opened it:
// the lock file is created and held inside the folder the member holds, never behind the link.
TEST(HostLock, ALockFileIsReachedThroughTheHeldFolderNotItsPath) {
    TempFolder temp;
    const std::string suite = temp / "suite", victim = temp / "victim", moved = temp / "moved";
    ASSERT_EQ(::mkdir(suite.c_str(), 0700), 0);
    ASSERT_EQ(::mkdir(victim.c_str(), 0700), 0);
    const int held = ::open(suite.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(held, 0);
    ASSERT_EQ(::rename(suite.c_str(), moved.c_str()), 0);
    ASSERT_EQ(::symlink(victim.c_str(), suite.c_str()), 0);

    HostLock lock(std::vector<std::pair<std::string, int>>{{suite + "/host.lock", held}}, fast);
    ::close(held);  // the lock keeps its own duplicate
    lock.start([] {});
    ASSERT_TRUE(eventually([&] { return lock.isHeld(); }));
    struct stat st {};
    EXPECT_EQ(::lstat((moved + "/host.lock").c_str(), &st), 0) << "created in the held folder";
    EXPECT_NE(::lstat((victim + "/host.lock").c_str(), &st), 0) << "nothing created behind the link";
    // Holding it is not mistaken for a replaced file: the name is looked up in the held folder.
    lock.checkNow();
    EXPECT_FALSE(eventually([&] { return !lock.isHeld(); }, 300ms));
    lock.release();
}

TEST(HostLock, InProcessLifecycle) {
    TempFolder folder;
    HostLock never(std::vector<std::string>{});
    never.start([] { ADD_FAILURE() << "no URLs, no election"; });
    never.release();
    never.release();

    HostLock lock(folder / "host.lock", fast);
    std::atomic<int> calls{0};
    lock.start([&] { ++calls; });
    lock.start([&] { ++calls; });
    ASSERT_TRUE(eventually([&] { return lock.isHeld(); }));
    // Two descriptors of one process are rivals too: a second lock waits behind the first.
    HostLock second(folder / "host.lock", fast);
    second.start([&] { ++calls; });
    ASSERT_TRUE(eventually([&] { return second.failedTries() >= 2; }));
    EXPECT_FALSE(second.isHeld());
    lock.release();
    EXPECT_FALSE(lock.isHeld());
    lock.release();
    ASSERT_TRUE(eventually([&] { return second.isHeld(); }));
    EXPECT_EQ(calls.load(), 2);

    const int fd = ::open((folder / "host.lock").c_str(), O_RDONLY);
    ::symlink((folder / "host.lock").c_str(), (folder / "link.lock").c_str());
    EXPECT_TRUE(HostLock::isSameFile(fd, folder / "host.lock"));
    EXPECT_FALSE(HostLock::isSameFile(fd, folder / "link.lock"));  // a link is not the file it names
    EXPECT_FALSE(HostLock::isSameFile(fd, folder / "absent.lock"));
    ::close(fd);
}

// The lock file replaced between opening it and locking it: the lock taken is on a file the name no
// longer stands for, which elects nobody, so the waiter must start over on the new file. The holder's
// round of checks is an hour here, so only the check after locking can put it right.
TEST(HostLock, AFileReplacedBetweenOpenAndLockIsNotTheLockWon) {
    TempFolder folder;
    const std::string lock = folder / "host.lock";
    std::atomic<int> opens{0};
    HostLock::Timing timing{10ms, std::chrono::hours(1), std::chrono::hours(1), {}};
    timing.afterOpen = [&](const std::string& path) {
        if (opens++ > 0) return;
        kestrow::testing::writeFile(folder / "fresh.lock", "");
        ASSERT_EQ(::rename((folder / "fresh.lock").c_str(), path.c_str()), 0);
    };
    HostLock mine(lock, timing);
    mine.start([] {});
    ASSERT_TRUE(eventually([&] { return mine.isHeld(); }));
    EXPECT_GE(opens.load(), 2) << "it opened the file again after the replacement";
    const int fd = ::open(lock.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    EXPECT_NE(::flock(fd, LOCK_EX | LOCK_NB), 0) << "the file the name stands for is the one held";
    ::close(fd);
}

// A link in place of the lock file is never opened: the failure is logged once per wait, retried on
// the retry cadence, and releasing ends the retries.
TEST(HostLock, ALinkedLockFileIsRefusedAndLoggedOnce) {
    TempFolder folder, logs;
    ::symlink("/tmp", (folder / "host.lock").c_str());
    Contender linked(logs / "linked", {folder / "host.lock"});
    ASSERT_TRUE(eventually([&] { return linked.status().tries >= 3; }));
    EXPECT_FALSE(linked.status().held);
    EXPECT_EQ(linked.logLinesContaining("cannot open " + folder / "host.lock" + ": errno " + std::to_string(ELOOP) +
                                        "; retrying every 5 s"),
              1u);
    linked.release();
    EXPECT_FALSE(linked.status().held);
}

}  // namespace
}  // namespace kestrow::suite
