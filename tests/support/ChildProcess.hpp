// A real child process for end-to-end tests: started with extra environment, its output in files,
// waited for with a deadline, and always reaped (killed first if it is still running when the
// object goes).
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

extern char** environ;

namespace kestrow::testing {

// Runs `work` in a forked child that, when this test runs as root, first drops to the user nobody
// (reading permissions do not stop root), and gives back the plain value it computed through a
// pipe. As another user `work` simply runs in the child. The child is reaped before this returns.
template <typename Value, typename Work>
Value runAsNobody(Work work) {
    static_assert(std::is_trivially_copyable_v<Value>);
    int fds[2];
    if (::pipe(fds) != 0) return Value{};
    const pid_t child = ::fork();
    if (child == 0) {
        if (::getuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(3);
        const Value value = work();
        if (::write(fds[1], &value, sizeof value) != static_cast<ssize_t>(sizeof value)) ::_exit(4);
        ::_exit(0);
    }
    ::close(fds[1]);
    Value value{};
    const ssize_t got = ::read(fds[0], &value, sizeof value);
    ::close(fds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return got == static_cast<ssize_t>(sizeof value) && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? value : Value{};
}

inline std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Polls a condition until it holds or the (real-time) deadline passes.
inline bool waitUntil(const std::function<bool()>& done, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

class ChildProcess {
public:
    ChildProcess(std::vector<std::string> arguments, const std::map<std::string, std::string>& environment,
                 std::string outPath, std::string errPath)
        : out_(std::move(outPath)),
          err_(std::move(errPath)) {
        std::map<std::string, std::string> merged;
        for (char** e = environ; *e; ++e) {
            const std::string entry(*e);
            const auto equals = entry.find('=');
            if (equals != std::string::npos) merged[entry.substr(0, equals)] = entry.substr(equals + 1);
        }
        for (const auto& [key, value] : environment) merged[key] = value;
        std::vector<std::string> envStrings;
        for (const auto& [key, value] : merged) envStrings.push_back(key + "=" + value);
        std::vector<char*> argv, envp;
        for (auto& a : arguments) argv.push_back(a.data());
        argv.push_back(nullptr);
        for (auto& e : envStrings) envp.push_back(e.data());
        envp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~ChildProcess() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool started() const { return pid_ > 0; }
    // The exit status once it ended within the deadline; -1 for a signal or a timeout.
    int waitExit(double seconds) {
        int status = 0;
        const bool ended = waitUntil([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; }, seconds);
        if (!ended) return -1;
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    int stop(int signal, double seconds) {
        ::kill(pid_, signal);
        return waitExit(seconds);
    }
    std::string out() const { return readWholeFile(out_); }
    std::string err() const { return readWholeFile(err_); }

private:
    pid_t pid_ = -1;
    std::string out_, err_;
};

}  // namespace kestrow::testing
