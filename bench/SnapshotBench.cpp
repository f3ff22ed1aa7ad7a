// Takes snapshots back to back on a warmed engine and prints what one costs, beside the cost of one
// `ps -e -o pid,ppid,rss,time,args` run on the same machine.
//
//   build/release/bench/snapshot_bench [--spawn N] [snapshots]
//
// --spawn N starts N idle child processes first, so that the sweep is measured on a busy machine's
// process count; every one of them is reaped before the figures are printed.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "core/monitoring/MonitorEngine.hpp"

extern char** environ;

namespace {

double cpuSeconds(const rusage& usage) {
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double selfCPU() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return cpuSeconds(usage);
}

struct Figures {
    double median = 0, max = 0;
};

Figures summarise(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return {values[values.size() / 2], values.back()};
}

// One ps run: its own CPU time (from wait4) and its wall time.
std::pair<double, double> runPs() {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    char* argv[] = {const_cast<char*>("ps"), const_cast<char*>("-e"), const_cast<char*>("-o"),
                    const_cast<char*>("pid,ppid,rss,time,args"), nullptr};
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (posix_spawnp(&pid, "ps", &actions, nullptr, argv, environ) != 0) return {-1, -1};
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return {cpuSeconds(usage), wall};
}

// Idle children that wait for the end of a pipe. Closing the write end (or the bench dying) ends
// them all, so none outlives the bench even when it is killed.
class IdleChildren {
public:
    explicit IdleChildren(int count) {
        if (count <= 0) return;
        int fds[2];
        if (::pipe(fds) != 0) return;
        ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
        writeEnd_ = fds[1];
        for (int i = 0; i < count; ++i) {
            const pid_t pid = ::fork();
            if (pid < 0) {
                std::fprintf(stderr, "snapshot_bench: fork failed after %d children: %s\n", i, std::strerror(errno));
                break;
            }
            if (pid == 0) {
                ::close(fds[1]);
                char byte = 0;
                while (::read(fds[0], &byte, 1) < 0 && errno == EINTR) {
                }
                ::_exit(0);
            }
            children_.push_back(pid);
        }
        ::close(fds[0]);
    }
    IdleChildren(const IdleChildren&) = delete;
    IdleChildren& operator=(const IdleChildren&) = delete;
    ~IdleChildren() { reap(); }

    std::size_t size() const { return children_.size(); }

    // Ends every child and waits for each; returns how many were reaped.
    std::size_t reap() {
        if (writeEnd_ >= 0) ::close(writeEnd_);
        writeEnd_ = -1;
        std::size_t reaped = 0;
        for (const pid_t pid : children_) {
            int status = 0;
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            ++reaped;
        }
        children_.clear();
        return reaped;
    }

private:
    int writeEnd_ = -1;
    std::vector<pid_t> children_;
};

}  // namespace

int main(int argc, char** argv) {
    int rounds = 50;
    int spawn = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg(argv[i]);
        if (arg == "--spawn" && i + 1 < argc) spawn = std::max(0, std::atoi(argv[++i]));
        else if (!arg.empty() && arg.front() != '-') rounds = std::max(3, std::atoi(argv[i]));
        else {
            std::fprintf(stderr, "usage: snapshot_bench [--spawn N] [snapshots]\n");
            return 2;
        }
    }
    // Children are forked before the engine starts its executor thread.
    IdleChildren children(spawn);
    if (spawn > 0) std::printf("spawned: %zu idle child processes\n", children.size());

    brimlet::MonitorEngine engine;
    engine.snapshot().get();  // warm: identities cached, counters primed
    engine.snapshot().get();

    std::vector<double> cpu, wall, processes;
    for (int i = 0; i < rounds; ++i) {
        const double cpuBefore = selfCPU();
        const auto start = std::chrono::steady_clock::now();
        const brimlet::MonitorSnapshot snap = engine.snapshot().get();
        wall.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        cpu.push_back(selfCPU() - cpuBefore);
        processes.push_back(static_cast<double>(snap.readableProcessCount + snap.hiddenProcessCount));
    }
    rusage self{};
    ::getrusage(RUSAGE_SELF, &self);

    std::vector<double> psCPU, psWall;
    for (int i = 0; i < std::min(rounds, 20); ++i) {
        auto [c, w] = runPs();
        if (c < 0) break;
        psCPU.push_back(c);
        psWall.push_back(w);
    }

    const std::size_t reaped = children.reap();
    if (spawn > 0) std::printf("reaped: %zu child processes\n", reaped);

    const Figures c = summarise(cpu), w = summarise(wall), p = summarise(processes);
    // Idle processes are read in full only every few sweeps, so the mean over all snapshots, not
    // the median one, is what a sweep costs over time.
    double cpuTotal = 0, processTotal = 0;
    for (double v : cpu) cpuTotal += v;
    for (double v : processes) processTotal += v;
    const double cpuMean = cpuTotal / static_cast<double>(std::max<std::size_t>(1, cpu.size()));
    std::printf("snapshots: %d back to back on a warmed engine\n", rounds);
    std::printf("processes per snapshot: %.0f (median), %.0f (max)\n", p.median, p.max);
    std::printf("CPU per snapshot:  mean %.3f ms, median %.3f ms, max %.3f ms\n", cpuMean * 1e3, c.median * 1e3,
                c.max * 1e3);
    std::printf("wall per snapshot: median %.3f ms, max %.3f ms\n", w.median * 1e3, w.max * 1e3);
    std::printf("CPU per process:   %.2f us (all snapshots' CPU over all processes read)\n",
                cpuTotal * 1e6 / std::max(1.0, processTotal));
    std::printf("peak resident memory: %.1f MiB\n", static_cast<double>(self.ru_maxrss) / 1024.0);
    if (!psCPU.empty()) {
        const Figures pc = summarise(psCPU), pw = summarise(psWall);
        std::printf("ps -e -o pid,ppid,rss,time,args (%zu runs): CPU median %.3f ms, max %.3f ms; "
                    "wall median %.3f ms\n",
                    psCPU.size(), pc.median * 1e3, pc.max * 1e3, pw.median * 1e3);
        std::printf("snapshot CPU / ps CPU: %.2f (mean snapshot over median ps)\n", cpuMean / std::max(1e-9, pc.median));
    } else {
        std::printf("ps: not available on this machine\n");
    }
    return 0;
}
