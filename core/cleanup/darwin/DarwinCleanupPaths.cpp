// Where this platform keeps the data the cleanup knows about.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../CleanupItem.hpp"
#include "../SafetyPolicy.hpp"

extern char** environ;

namespace brimlet {

const std::vector<CleanupCatalog::Entry>& CleanupCatalog::entries() { return macEntries(); }

const std::vector<std::string>& NeverTouch::platformRelativeRoots() {
    static const std::vector<std::string> none;
    return none;
}

// `xcode-select -p` prints the active developer directory; none when it fails or prints nothing.
std::optional<std::string> currentDeveloperDirectory() {
    int fds[2];
    if (::pipe(fds) != 0) return std::nullopt;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    char* argv[] = {const_cast<char*>("/usr/bin/xcode-select"), const_cast<char*>("-p"), nullptr};
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    std::string output;
    char buffer[1024];
    for (ssize_t n; spawned == 0 && (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) output.append(buffer, static_cast<std::size_t>(n));
    ::close(fds[0]);
    int status = 0;
    if (spawned != 0 || ::waitpid(pid, &status, 0) < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return std::nullopt;
    while (!output.empty() && (output.back() == '\n' || output.back() == ' ')) output.pop_back();
    if (output.empty()) return std::nullopt;
    return output;
}

}  // namespace brimlet
