// "--measure" and "--clean" as a process: the real home folder, the real Trash, the terminal and the
// signals. Everything it decides is in CleanerCommand.cpp.
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "app/commands/CleanerCommand.hpp"

namespace brimlet {

namespace {

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the flag is set from a signal handler");

extern "C" void requestStop(int) { stopRequested.store(true); }

void takeStopSignals() {
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    // The cleaner stops between items; an item under way runs to its end. A second signal is not
    // caught and ends the process as usual, for whoever cannot wait that long.
    action.sa_flags = SA_RESETHAND;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
}

std::size_t terminalWidth(int fd) {
    struct winsize size {};
    if (::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return 80;
}

void write(std::FILE* stream, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

}  // namespace

int CleanerCommand::runProcess(const std::vector<std::string>& arguments, LaunchPlatform platform) {
    auto parsed = parse(arguments, platform);
    if (const auto* exit = std::get_if<Exit>(&parsed)) {
        write(stderr, exit->standardError);
        return exit->status;
    }
    takeStopSignals();
    const bool terminal = ::isatty(STDERR_FILENO) == 1;
    CleanerRun::Output output{
        .out = [](std::string_view text) { write(stdout, text); },
        .progress = [](std::string_view text) { write(stderr, text); },
        .terminal = terminal,
        .width = terminal ? terminalWidth(STDERR_FILENO) : 80,
    };
    LiveFileOperations fileOperations;
    CleanerRun run(std::get<CleanerRequest>(std::move(parsed)), homeFolder(std::getenv("HOME"), ::getuid()),
                   fileOperations, std::move(output), [] { return stopRequested.load(); });
    return run.run();
}

}  // namespace brimlet
