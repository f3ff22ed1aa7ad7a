// What the headless app costs while nothing needs live figures: runs KestrowBrimlet at its idle
// cadence (alerts off, no Dock badges, no surface: a full sample every 10 s, the cheap glance in
// between) against a throw-away suite folder and settings, for a number of seconds, then stops it
// with SIGTERM and prints its CPU time as a share of one core and its peak resident memory.
// With --live the alerts stay on, as they are by default, so it samples every 2 s: the cadence at
// which the fixed cost of a sample shows most.
// Beside the whole run it prints the steady state, from the app's threads' own run times after the
// first tenth of the run (start-up left out), and the cost of a bare timer wake of an idle thread
// on this machine, taken by the bench's own waiting: a floor that every wake of the app pays too.
//
//   idle_bench [--live] [SECONDS=600] [PATH-TO-KestrowBrimlet]
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

double seconds(const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; }

// Nanoseconds a thread has spent on a CPU, from its schedstat (exact, where stat counts clock ticks).
double runNanoseconds(const std::string& task) {
    std::ifstream file(task + "/schedstat");
    double ns = 0;
    file >> ns;
    return ns;
}

struct ThreadTime {
    std::string name;
    double ns = 0;
};

std::map<std::string, ThreadTime> threadTimes(pid_t pid) {
    std::map<std::string, ThreadTime> threads;
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", error)) {
        ThreadTime time;
        std::getline(std::ifstream(task.path() / "comm"), time.name);
        time.ns = runNanoseconds(task.path());
        threads[task.path().filename()] = time;
    }
    return threads;
}

std::size_t processCount() {
    std::size_t count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        count += !name.empty() && name.find_first_not_of("0123456789") == std::string::npos;
    }
    return count;
}

// Waits out `span` in wakes of `every` on a timerfd, and gives this thread's mean run time per
// wake: what an idle thread pays each time a timer wakes it, with nothing else to do. Its own
// schedstat stays open and is read with one pread, whose cost, timed back to back, is taken off.
double waitInWakes(double span, double every) {
    const int timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const int own = ::open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC);
    const auto ranFor = [own] {
        char text[128] = {};
        return ::pread(own, text, sizeof text - 1, 0) > 0 ? std::strtod(text, nullptr) : 0.0;
    };
    const auto wakes = static_cast<long>(span / every);
    double spent = 0, reading = 0;
    if (timer >= 0 && own >= 0 && wakes > 0) {
        const double first = ranFor(), second = ranFor();
        reading = second - first;
        const auto whole = static_cast<long>(every);
        const auto fraction = static_cast<long>((every - static_cast<double>(whole)) * 1e9);
        const itimerspec period{{whole, fraction}, {whole, fraction}};
        ::timerfd_settime(timer, 0, &period, nullptr);
        double before = ranFor();
        for (long i = 0; i < wakes; ++i) {
            std::uint64_t expirations = 0;
            if (::read(timer, &expirations, sizeof expirations) < 0) break;
            const double now = ranFor();
            spent += now - before - reading;
            before = now;
        }
    } else {
        std::this_thread::sleep_for(std::chrono::duration<double>(span));
    }
    if (timer >= 0) ::close(timer);
    if (own >= 0) ::close(own);
    const double rest = span - static_cast<double>(wakes) * every;
    if (rest > 0 && timer >= 0 && own >= 0) std::this_thread::sleep_for(std::chrono::duration<double>(rest));
    return wakes > 0 ? spent / static_cast<double>(wakes) : 0;
}

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

    const std::size_t processes = processCount();
    const double warmUp = runFor / 10;
    std::this_thread::sleep_for(std::chrono::duration<double>(warmUp));
    const auto steadyFrom = threadTimes(pid);
    const auto steadyStart = std::chrono::steady_clock::now();
    const double wakeCost = waitInWakes(runFor - warmUp, 2.0);
    const auto steadyTo = threadTimes(pid);
    const double steadySpan = std::chrono::duration<double>(std::chrono::steady_clock::now() - steadyStart).count();
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
    // Threads present at both ends; one that came or went in between counts from zero or to its end.
    double steadyNs = 0;
    std::map<std::string, double> byName;
    for (const auto& [tid, end] : steadyTo) {
        const auto start = steadyFrom.find(tid);
        const double ns = end.ns - (start == steadyFrom.end() ? 0 : start->second.ns);
        steadyNs += ns;
        byName[end.name] += ns;
    }
    const double perSample = live ? steadySpan / 2 : steadySpan / 10;
    std::printf("steady state         %.4f %% of one core over the last %.0f s, %.3f ms a %s sample:",
                steadyNs / 1e9 / steadySpan * 100, steadySpan, steadyNs / 1e6 / perSample, live ? "2 s" : "10 s");
    for (const auto& [name, ns] : byName) std::printf(" %s %.3f ms", name.c_str(), ns / 1e6 / perSample);
    std::printf("\nprocesses            %zu on the machine at the start\n", processes);
    std::printf("a bare timer wake    %.1f us of CPU for an idle thread on this machine (the bench's own waits)\n",
                wakeCost / 1e3);
    std::printf("exit                 %s %d\n", WIFEXITED(status) ? "status" : "signal",
                WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status));
    std::error_code ignored;
    std::filesystem::remove_all(temp, ignored);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}
