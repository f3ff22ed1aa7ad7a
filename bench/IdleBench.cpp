// What the headless app costs while nothing needs live figures: runs KestrowBrimlet at its idle
// cadence (alerts off, no Dock badges, no surface: a full sample every 10 s, the cheap glance in
// between) against a throw-away suite folder and settings, for a number of seconds, then stops it
// with SIGTERM and prints its CPU time as a share of one core and its peak resident memory.
// With --live the alerts stay on, as they are by default, so it samples every 2 s: the cadence at
// which the fixed cost of a sample shows most.
//
//   idle_bench [--live] [SECONDS=600] [PATH-TO-KestrowBrimlet]
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

double seconds(const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; }

}  // namespace

int main(int argc, char** argv) {
    const bool live = argc > 1 && std::string(argv[1]) == "--live";
    if (live) {
        --argc;
        ++argv;
    }
    const double runFor = argc > 1 ? std::atof(argv[1]) : 600.0;
    const std::string app = argc > 2 ? argv[2] : KESTROW_BRIMLET_PATH;
    if (runFor <= 0) {
        std::fputs("usage: idle_bench [--live] [SECONDS=600] [PATH-TO-KestrowBrimlet]\n", stderr);
        return 2;
    }

    char pattern[] = "/tmp/kestrow-idle-XXXXXX";
    if (!::mkdtemp(pattern)) {
        std::perror("idle_bench: mkdtemp");
        return 1;
    }
    const std::string temp = pattern;
    std::filesystem::create_directories(temp + "/config/kestrow");
    if (!live)
        std::ofstream(temp + "/config/kestrow/com.kestrow.brimlet.json")
            << R"({"alertSettings":"{\"heavyAppEnabled\":false,\"heavyAppThreshold\":8589934592,)"
               R"(\"lowDiskEnabled\":false,\"lowDiskThreshold\":10000000000,\"memoryPressureEnabled\":false}"})";

    std::vector<std::string> environment;
    for (char** e = environ; *e; ++e) {
        const std::string entry(*e);
        if (entry.rfind("XDG_CONFIG_HOME=", 0) != 0) environment.push_back(entry);
    }
    environment.push_back("XDG_CONFIG_HOME=" + temp + "/config");
    std::vector<char*> envp;
    for (auto& e : environment) envp.push_back(e.data());
    envp.push_back(nullptr);
    std::string suite = temp + "/suite", flag = "--suite-folder", program = app;
    std::vector<char*> arguments{program.data(), flag.data(), suite.data(), nullptr};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string log = temp + "/app.log";
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    const auto started = std::chrono::steady_clock::now();
    if (::posix_spawn(&pid, app.c_str(), &actions, nullptr, arguments.data(), envp.data()) != 0) {
        std::fprintf(stderr, "idle_bench: cannot start %s\n", app.c_str());
        return 1;
    }
    posix_spawn_file_actions_destroy(&actions);
    std::printf("running %s headless at the %s cadence for %.0f s\n", app.c_str(), live ? "live (2 s)" : "idle",
                runFor);
    std::fflush(stdout);

    std::this_thread::sleep_for(std::chrono::duration<double>(runFor));
    ::kill(pid, SIGTERM);
    int status = 0;
    rusage usage{};
    if (::wait4(pid, &status, 0, &usage) != pid) {
        std::perror("idle_bench: wait4");
        return 1;
    }
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const double user = seconds(usage.ru_utime), system = seconds(usage.ru_stime);

    std::printf("wall time            %.1f s\n", wall);
    std::printf("CPU time             %.3f s (user %.3f s, system %.3f s)\n", user + system, user, system);
    std::printf("CPU of one core      %.4f %%   (goal: %s)\n", (user + system) / wall * 100,
                live ? "at most 0.06 % with about 100 processes" : "under 0.05 %");
    std::printf("peak resident memory %.2f MiB  (goal: under 8 MB)\n", static_cast<double>(usage.ru_maxrss) / 1024);
    std::printf("exit                 %s %d\n", WIFEXITED(status) ? "status" : "signal",
                WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status));
    std::error_code ignored;
    std::filesystem::remove_all(temp, ignored);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}
