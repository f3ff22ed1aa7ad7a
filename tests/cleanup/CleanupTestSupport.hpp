// Real mounts, real unprivileged users and real child processes for the cleanup tests.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace brimlet::testing {

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Points the home Trash into a temporary folder for the length of a test.
class ScopedDataHome {
public:
    explicit ScopedDataHome(const std::string& path) {
        if (const char* old = std::getenv("XDG_DATA_HOME")) old_ = old;
        ::setenv("XDG_DATA_HOME", path.c_str(), 1);
    }
    ~ScopedDataHome() {
        if (old_) ::setenv("XDG_DATA_HOME", old_->c_str(), 1);
        else ::unsetenv("XDG_DATA_HOME");
    }

private:
    std::optional<std::string> old_;
};

// Polls a condition until it holds or the deadline passes; true when it held.
inline bool waitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds deadline = std::chrono::seconds(5)) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

// A mount for the length of a test, detached at the end wherever it was moved to. Root only.
class ScopedMount {
public:
    // A bind mount of `source` at `target`.
    static ScopedMount bind(const std::string& source, const std::string& target) {
        ScopedMount mount(target);
        std::filesystem::create_directories(target);
        if (::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) mount.error_ = errno;
        return mount;
    }
    // A small tmpfs at `target`.
    static ScopedMount tmpfs(const std::string& target, const std::string& options = "size=4m") {
        ScopedMount mount(target);
        std::filesystem::create_directories(target);
        if (::mount("tmpfs", target.c_str(), "tmpfs", 0, options.c_str()) != 0) mount.error_ = errno;
        return mount;
    }
    ScopedMount(ScopedMount&& other) noexcept : target_(std::move(other.target_)), error_(other.error_) {
        other.error_ = -1;
    }
    ~ScopedMount() {
        if (error_ == 0) ::umount2(target_.c_str(), MNT_DETACH);
    }
    bool ok() const { return error_ == 0; }
    std::string why() const { return "cannot mount at " + target_ + ": " + std::strerror(error_); }
    // The mount now lives elsewhere (its folder was renamed).
    void movedTo(const std::string& target) { target_ = target; }
    bool remountReadOnly() { return ::mount(nullptr, target_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0; }

private:
    explicit ScopedMount(std::string target) : target_(std::move(target)) {}
    std::string target_;
    int error_ = 0;
};

#define KESTROW_REQUIRE_ROOT()                                                                                         \
    do {                                                                                                               \
        if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount (CI runs the tests as root)";                       \
    } while (0)

// The user "nobody", whom permissions stop.
inline constexpr uid_t nobody = 65534;

// Runs `work` as a user whom permissions stop. As root that is a thread whose own credentials
// (Linux keeps them per thread below the C library) are those of nobody; otherwise we already are
// such a user and it runs here.
inline void runUnprivileged(const std::function<void()>& work) {
    if (::geteuid() != 0) {
        work();
        return;
    }
    bool dropped = false;
    std::thread thread([&] {
        dropped = ::syscall(SYS_setresgid, nobody, nobody, nobody) == 0 &&
                  ::syscall(SYS_setresuid, nobody, nobody, nobody) == 0;
        if (dropped) work();
    });
    thread.join();
    ASSERT_TRUE(dropped) << "cannot become nobody";
}

// Hands a tree to nobody when we are root, so that nobody may change it; no-op otherwise.
inline void giveToUnprivileged(const std::string& path) {
    if (::geteuid() != 0) return;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
        ::lchown(entry.path().c_str(), nobody, nobody);
    ::lchown(path.c_str(), nobody, nobody);
}

// Child processes started for real; each blocks reading its standard input from a pipe and ends
// when the pipe closes, so none can outlive the test, and every one is reaped.
class Children {
public:
    struct Options {
        std::string folder;             // working folder
        std::vector<std::string> args;  // args[0] is the executable
        std::string openFile;           // held open as descriptor 3 when not empty
        std::vector<std::string> extraEnvironment;
    };
    pid_t start(const Options& options) {
        int fds[2];
        if (::pipe(fds) != 0) return -1;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[0], STDIN_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[1]);
        if (!options.folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, options.folder.c_str());
        if (!options.openFile.empty())
            posix_spawn_file_actions_addopen(&actions, 3, options.openFile.c_str(), O_RDONLY, 0);
        std::vector<std::string> args = options.args;
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        std::vector<std::string> environment = options.extraEnvironment;
        for (char** e = environ; *e; ++e) environment.emplace_back(*e);
        std::vector<char*> envp;
        for (auto& e : environment) envp.push_back(e.data());
        envp.push_back(nullptr);
        pid_t pid = -1;
        const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[0]);
        if (spawned != 0) {
            ::close(fds[1]);
            return -1;
        }
        children_.push_back({pid, fds[1]});
        return pid;
    }
    ~Children() {
        // Closing the pipes ends them; a kill makes sure, and the wait reaps them.
        for (const Child& child : children_) ::close(child.input);
        for (const Child& child : children_) {
            ::kill(child.pid, SIGKILL);
            while (::waitpid(child.pid, nullptr, 0) < 0 && errno == EINTR) {}
        }
    }

private:
    struct Child {
        pid_t pid;
        int input;
    };
    std::vector<Child> children_;
};

}  // namespace brimlet::testing
