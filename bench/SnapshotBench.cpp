// Takes snapshots on a warmed engine and prints what one costs, beside the cost of one
// `ps -e -o pid,ppid,rss,time,args` run and the floor of re-reading already-open /proc/PID/stat files
// for the same processes, all on the same machine in the same run.
//
//   build/release/bench/snapshot_bench [--spawn N] [--pace SECONDS] [snapshots]
//
// --spawn N starts N idle child processes first, so that the sweep is measured on a busy machine's
// process count; every one of them is reaped before the figures are printed.
// --pace SECONDS waits that long between snapshots, as the application does (2 s while live), so
// that caches go cold between samples as they do in use; by default they are taken back to back.
//
// Besides the engine's figures it prints where one snapshot's CPU time goes (the process sweep, the
// system figures, grouping), each measured on this thread's CPU clock with the samplers called
// directly, and the floor: one pread of each process's held-open stat file.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>
#include <time.h>
#include <vector>

#include "core/monitoring/AppGrouper.hpp"
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

double threadCPU() {
    timespec ts{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

double mean(const std::vector<double>& values) {
    double total = 0;
    for (double v : values) total += v;
    return values.empty() ? 0 : total / static_cast<double>(values.size());
}

// The floor of a sweep: every process's stat file opened once and then only read again from its
// start, with nothing parsed. What a sweep costs above this is the price of its figures.
class HeldStatFiles {
public:
    HeldStatFiles() {
        for (const std::int32_t pid : brimlet::liveProcessReading().allPIDs()) {
            char path[32] = "/proc/";
            char* end = std::to_chars(path + 6, path + 20, pid).ptr;
            std::memcpy(end, "/stat", 6);
            const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
            if (fd >= 0) fds_.push_back(fd);
        }
    }
    HeldStatFiles(const HeldStatFiles&) = delete;
    HeldStatFiles& operator=(const HeldStatFiles&) = delete;
    ~HeldStatFiles() {
        for (const int fd : fds_) ::close(fd);
    }
    std::size_t size() const { return fds_.size(); }
    // One pass: returns how many files answered.
    std::size_t sweep() {
        std::size_t answered = 0;
        for (const int fd : fds_)
            if (::pread(fd, buffer_, sizeof buffer_, 0) > 0) ++answered;
        return answered;
    }

private:
    std::vector<int> fds_;
    char buffer_[4096];
};

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
                while (::read(fds[0], &byte, 1) < 0 && errno == EINTR) {}
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
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
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
    double pace = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg(argv[i]);
        if (arg == "--spawn" && i + 1 < argc) spawn = std::max(0, std::atoi(argv[++i]));
        else if (arg == "--pace" && i + 1 < argc) pace = std::max(0.0, std::atof(argv[++i]));
        else if (!arg.empty() && arg.front() != '-') rounds = std::max(3, std::atoi(argv[i]));
        else {
            std::fprintf(stderr, "usage: snapshot_bench [--spawn N] [--pace SECONDS] [snapshots]\n");
            return 2;
        }
    }
    // Children are forked before the engine starts its executor thread.
    IdleChildren children(spawn);
    if (spawn > 0) std::printf("spawned: %zu idle child processes\n", children.size());

    brimlet::MonitorEngine engine;
    engine.snapshot().get();  // warm: identities cached, counters primed
    engine.snapshot().get();

    const auto rest = [pace] {
        if (pace > 0) std::this_thread::sleep_for(std::chrono::duration<double>(pace));
    };
    std::vector<double> cpu, wall, processes;
    for (int i = 0; i < rounds; ++i) {
        rest();
        const double cpuBefore = selfCPU();
        const auto start = std::chrono::steady_clock::now();
        const brimlet::MonitorSnapshot snap = engine.snapshot().get();
        wall.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        cpu.push_back(selfCPU() - cpuBefore);
        processes.push_back(static_cast<double>(snap.readableProcessCount + snap.hiddenProcessCount));
    }
    rusage self{};
    ::getrusage(RUSAGE_SELF, &self);

    // The same steps called on this thread, each on this thread's CPU clock, with the floor taken in
    // the same rounds: both see the same machine, whose load and caches drift over a run.
    std::vector<double> sweepCPU, systemCPU, groupCPU, floorCPU;
    std::size_t floorFiles = 0;
    {
        brimlet::ProcessSampler processSampler;
        brimlet::SystemSampler systemSampler;
        HeldStatFiles held;
        processSampler.sample();
        systemSampler.sample();
        held.sweep();
        for (int i = 0; i < rounds; ++i) {
            rest();
            const double t0 = threadCPU();
            const brimlet::ProcessSampler::Result& sampled = processSampler.sample();
            const double t1 = threadCPU();
            const brimlet::SystemStats stats = systemSampler.sample();
            const double t2 = threadCPU();
            const auto apps = brimlet::AppGrouper::group(sampled.processes);
            const double t3 = threadCPU();
            sweepCPU.push_back(t1 - t0);
            systemCPU.push_back(t2 - t1);
            groupCPU.push_back(t3 - t2);
            (void)stats;
            (void)apps;
            rest();
            const double f0 = threadCPU();
            floorFiles = held.sweep();
            floorCPU.push_back(threadCPU() - f0);
        }
    }

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
    std::printf("pace: %s\n", pace > 0 ? (std::to_string(pace) + " s between snapshots").c_str() : "back to back");
    std::printf("steps on one thread (mean CPU): sweep %.3f ms, system figures %.3f ms, grouping %.3f ms\n",
                mean(sweepCPU) * 1e3, mean(systemCPU) * 1e3, mean(groupCPU) * 1e3);
    const double floorMean = mean(floorCPU);
    std::printf("floor, pread of %zu held-open stat files: mean %.3f ms (%.2f us a file)\n", floorFiles,
                floorMean * 1e3, floorMean * 1e6 / std::max<double>(1, static_cast<double>(floorFiles)));
    std::printf("sweep / floor: %.2f\n", mean(sweepCPU) / std::max(1e-9, floorMean));
    if (!psCPU.empty()) {
        const Figures pc = summarise(psCPU), pw = summarise(psWall);
        std::printf("ps -e -o pid,ppid,rss,time,args (%zu runs): CPU median %.3f ms, max %.3f ms; "
                    "wall median %.3f ms\n",
                    psCPU.size(), pc.median * 1e3, pc.max * 1e3, pw.median * 1e3);
        std::printf("snapshot CPU / ps CPU: %.2f (mean snapshot over median ps)\n",
                    cpuMean / std::max(1e-9, pc.median));
    } else {
        std::printf("ps: not available on this machine\n");
    }
    return 0;
}
