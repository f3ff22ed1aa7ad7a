// Real processes competing for the host lock on real files.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/TempFolder.hpp"
#include "suite/protocol/HostLock.hpp"

extern char** environ;

namespace kestrow::suite {
namespace {

using kestrow::testing::TempFolder;
using namespace std::chrono_literals;

class Contender {
public:
    Contender(const std::string& results, const std::string& id, const std::vector<std::string>& locks) : id_(id) {
        int fds[2];
        EXPECT_EQ(::pipe(fds), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[0], STDIN_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[1]);
        std::vector<std::string> args = {KESTROW_CONTENDER, results, id};
        args.insert(args.end(), locks.begin(), locks.end());
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        EXPECT_EQ(posix_spawn(&pid_, KESTROW_CONTENDER, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[0]);
        input_ = fds[1];
    }
    ~Contender() {
        if (input_ >= 0) ::close(input_);
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    void release() { ASSERT_EQ(::write(input_, "release\n", 8), 8); }
    void kill() {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    const std::string& id() const { return id_; }

private:
    std::string id_;
    pid_t pid_ = -1;
    int input_ = -1;
};

std::vector<std::string> hosts(const std::string& results) {
    std::vector<std::string> ids;
    for (const auto& entry : std::filesystem::directory_iterator(results)) {
        const std::string name = entry.path().filename().string();
        if (name.size() > 5 && name.substr(name.size() - 5) == ".host") ids.push_back(name.substr(0, name.size() - 5));
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

// Waits until `count` processes have become host, then a little longer to catch a second one.
std::vector<std::string> hostsAfter(const std::string& results, std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (hosts(results).size() < count && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(10ms);
    std::this_thread::sleep_for(300ms);
    return hosts(results);
}

TEST(HostLock, ExactlyOneHostAndHandOverOnReleaseAndKill) {
    TempFolder folder, results;
    const std::string lock = folder / "host.lock";
    std::vector<std::unique_ptr<Contender>> all;
    for (const char* id : {"a", "b", "c"}) all.push_back(std::make_unique<Contender>(results.path(), id, std::vector{lock}));
    auto first = hostsAfter(results.path(), 1);
    ASSERT_EQ(first.size(), 1u);
    Contender* host = nullptr;
    for (auto& c : all)
        if (c->id() == first[0]) host = c.get();
    host->release();
    auto second = hostsAfter(results.path(), 2);
    ASSERT_EQ(second.size(), 2u);
    std::string newHost;
    for (const auto& id : second)
        if (id != first[0]) newHost = id;
    for (auto& c : all)
        if (c->id() == newHost) c->kill();  // the kernel drops a dead host's lock
    EXPECT_EQ(hostsAfter(results.path(), 3).size(), 3u);
}

TEST(HostLock, FoldersListedInDifferentOrdersDoNotDeadlock) {
    TempFolder one, two, results;
    const std::string a = one / "host.lock", b = two / "host.lock";
    for (int round = 0; round < 5; ++round) {
        const std::string dir = results / std::to_string(round);
        ::mkdir(dir.c_str(), 0700);
        Contender forward(dir, "forward", {a, b});
        Contender backward(dir, "backward", {b, a, a + "/../host.lock"});
        const auto firstHost = hostsAfter(dir, 1);
        ASSERT_EQ(firstHost.size(), 1u) << "round " << round;
        (firstHost[0] == "forward" ? forward : backward).release();
        EXPECT_EQ(hostsAfter(dir, 2).size(), 2u) << "round " << round;
    }
    HostLock sorted(std::vector<std::string>{b, a, a, one.path() + "/./host.lock"});
    EXPECT_EQ(sorted.urls(), (a < b ? std::vector{a, b} : std::vector{b, a}));
}

TEST(HostLock, AWaiterStartsOverWhenTheLockFileIsDeleted) {
    TempFolder folder, results;
    const std::string lock = folder / "host.lock";
    Contender host(results.path(), "host", {lock});
    ASSERT_EQ(hostsAfter(results.path(), 1), std::vector<std::string>{"host"});
    Contender waiter(results.path(), "waiter", {lock});
    std::this_thread::sleep_for(300ms);  // the waiter blocks on the old file
    ASSERT_EQ(::unlink(lock.c_str()), 0);
    host.release();
    ASSERT_EQ(hostsAfter(results.path(), 2), (std::vector<std::string>{"host", "waiter"}));
    struct stat st{};
    EXPECT_EQ(::stat(lock.c_str(), &st), 0);  // the waiter made a fresh file and holds it
    Contender late(results.path(), "late", {lock});
    EXPECT_EQ(hostsAfter(results.path(), 3).size(), 2u);
}

TEST(HostLock, InProcessLifecycle) {
    TempFolder folder;
    HostLock never(std::vector<std::string>{});
    never.start([] { FAIL() << "no URLs, no election"; });
    never.release();
    never.release();

    HostLock lock(folder / "host.lock");
    std::atomic<int> calls{0};
    lock.start([&] { ++calls; });
    lock.start([&] { ++calls; });
    for (int i = 0; i < 500 && !lock.isHeld(); ++i) std::this_thread::sleep_for(2ms);
    EXPECT_TRUE(lock.isHeld());
    lock.release();
    EXPECT_FALSE(lock.isHeld());
    lock.release();
    EXPECT_EQ(calls.load(), 1);

    // A link in place of the lock file is never opened; releasing stops the retries at once.
    ::symlink("/tmp", (folder / "link.lock").c_str());
    HostLock linked(folder / "link.lock");
    linked.start([&] { ++calls; });
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(linked.isHeld());
    linked.release();
    EXPECT_EQ(calls.load(), 1);

    const int fd = ::open((folder / "host.lock").c_str(), O_RDONLY);
    EXPECT_TRUE(HostLock::isSameFile(fd, folder / "host.lock"));
    EXPECT_FALSE(HostLock::isSameFile(fd, folder / "link.lock"));
    ::close(fd);
}

}  // namespace
}  // namespace kestrow::suite
