// The Linux readers' own walks, on fixture trees of /proc and /sys and on real processes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sched.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/times.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>

#include "core/monitoring/ProcessSampler.hpp"
#include "core/monitoring/linux/LinuxReaders.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

const std::string fixtures = KESTROW_FIXTURES;

std::string readText(const std::filesystem::path& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

const ProcessSample* find(const std::vector<ProcessSample>& samples, std::int32_t pid) {
    auto it = std::find_if(samples.begin(), samples.end(), [&](const ProcessSample& s) { return s.pid() == pid; });
    return it == samples.end() ? nullptr : &*it;
}

std::uint64_t fixtureStart(std::uint64_t startTicks) {
    const auto hz = static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK));
    return 1'795'414'540ULL * 1'000'000 + startTicks * 1'000'000 / hz;  // btime of the fixture's stat
}

TEST(LinuxProcessReading, WalksAFixtureProcTreeWhateverItKeepsOpen) {
    // However many files the reader may keep between sweeps, it must report the same.
    for (const std::size_t limit : {std::size_t{0}, std::size_t{4}, std::size_t{64}}) {
        SCOPED_TRACE(limit);
        LinuxProcessReading reader(fixtures + "/proc", limit);
        std::vector<std::int32_t> pids = reader.allPIDs();
        std::sort(pids.begin(), pids.end());
        EXPECT_EQ(pids, (std::vector<std::int32_t>{2, 4242, 4300, 4400}));  // not "self", "acpi", "uptime"

        ProcessSampler sampler(reader, TickClock{1, 1});
        const ProcessSampler::Result first = sampler.sample();
        EXPECT_EQ(first.hidden, 1);  // 4400 has no status
        ASSERT_EQ(first.processes.size(), 3u);
        EXPECT_LE(reader.heldFileCount(), limit);

        const ProcessSample* tool = find(first.processes, 4242);
        ASSERT_NE(tool, nullptr);
        EXPECT_EQ(tool->name, "my (weird) ) proc");
        EXPECT_EQ(tool->ppid, 17);
        EXPECT_EQ(tool->key.startTime, fixtureStart(123456));
        EXPECT_EQ(tool->footprint, (20480u + 512u) * 1024u);
        EXPECT_EQ(tool->path, "/usr/bin/my tool");
        EXPECT_EQ(tool->argv0, "/usr/bin/my tool");
        EXPECT_EQ(tool->app->key, "cmd:my tool");

        const ProcessSample* inner = find(first.processes, 4300);
        ASSERT_NE(inner, nullptr);
        EXPECT_EQ(inner->app->key, "/Applications/Big.app");
        EXPECT_EQ(inner->argv0, std::nullopt);  // inside a bundle: arguments are never read

        const ProcessSample* kernel = find(first.processes, 2);
        ASSERT_NE(kernel, nullptr);
        EXPECT_EQ(kernel->footprint, 0u);
        EXPECT_EQ(kernel->path, std::nullopt);
        EXPECT_EQ(kernel->app->key, "cmd:kthreadd");

        // Unchanged counters: zero rates, except where io cannot be read at all.
        const ProcessSampler::Result second = sampler.sample();
        ASSERT_EQ(second.processes.size(), 3u);
        EXPECT_EQ(find(second.processes, 4242)->cpuPercent, 0.0);
        EXPECT_EQ(find(second.processes, 4242)->diskReadPerSecond, 0.0);
        EXPECT_EQ(find(second.processes, 4300)->diskReadPerSecond, std::nullopt);
        ProcessSample again = *find(second.processes, 4242);
        again.cpuPercent = again.diskReadPerSecond = again.diskWritePerSecond = std::nullopt;
        EXPECT_EQ(again, *tool);  // the rest as in the first sweep
        EXPECT_LE(reader.heldFileCount(), limit);

        EXPECT_EQ(reader.currentDirectory(4242), "/srv/work");
        EXPECT_EQ(reader.arguments(4242), (std::vector<std::string>{"/usr/bin/my tool", "--flag"}));
        EXPECT_EQ(reader.arguments(2), std::vector<std::string>{});
        EXPECT_EQ(reader.identity(4300)->ppid, 4242);
        EXPECT_FALSE(reader.usage(4400));
        EXPECT_FALSE(reader.usage(5000));
    }
    LinuxProcessReading nowhere("/nonexistent-proc-root");
    EXPECT_TRUE(nowhere.allPIDs().empty());
    EXPECT_FALSE(nowhere.identity(1));
}

// A process that sleeps keeps its last memory figures while its stat line stands still, and its
// I/O figures for a few sweeps; any sign of activity in the line makes the reader look again at
// both, the bound on reuse at the I/O counters.
TEST(LinuxProcessReading, RereadsMemoryWhenTheProcessStirsAndIoAlsoAfterABoundedWait) {
    kestrow::testing::TempFolder temp;
    const std::filesystem::path proc = temp / "proc", process = proc / "4242";
    std::filesystem::create_directories(process);
    for (const char* name : {"stat", "status", "io"})
        std::filesystem::copy_file(std::filesystem::path(fixtures) / "proc/4242" / name, process / name);
    std::filesystem::copy_file(std::filesystem::path(fixtures) / "proc/stat", proc / "stat");
    const std::string stat = readText(process / "stat"), statusText = readText(process / "status");
    // Rewritten in place: the reader keeps the files open and must see the new bytes.
    auto rewrite = [](const std::filesystem::path& path, const std::string& text) {
        std::ofstream(path, std::ios::in | std::ios::out | std::ios::trunc) << text;
    };
    auto withAnon = [&](const char* kilobytes) {
        std::string text = statusText;
        const std::size_t at = text.find("RssAnon:");
        text.replace(at, text.find('\n', at) - at, std::string("RssAnon:\t") + kilobytes + " kB");
        return text;
    };
    auto replaced = [&](const char* from, const char* to) {
        std::string text = stat;
        text.replace(text.find(from), std::strlen(from), to);
        return text;
    };

    auto io = [](std::uint64_t readBytes) {
        return "rchar: 123\nwchar: 456\nsyscr: 7\nsyscw: 8\nread_bytes: " + std::to_string(readBytes) +
               "\nwrite_bytes: 4096\ncancelled_write_bytes: 0\n";
    };

    struct Step {
        const char* what;
        std::string stat, status, io;
        std::uint64_t anonKilobytes, diskRead;  // what the reading must report
    };
    std::vector<Step> steps = {
        {"first sight reads everything", stat, statusText, io(8192), 20480, 8192},
        {"asleep: the last figures stand", stat, withAnon("30000"), io(9000), 20480, 8192},
        {"still asleep", stat, withAnon("30000"), io(9000), 20480, 8192},
        {"still asleep", stat, withAnon("30000"), io(9000), 20480, 8192},
        {"still asleep, the last sweep that may reuse", stat, withAnon("30000"), io(9000), 20480, 8192},
        {"the bound: I/O read again, the line vouches for the memory", stat, withAnon("30000"), io(9000), 20480, 9000},
        {"asleep again", stat, withAnon("40000"), io(10000), 20480, 9000},
        {"CPU time moved", replaced(" 250 75 ", " 251 75 "), withAnon("40000"), io(10000), 40000, 10000},
        {"a minor fault", replaced(" 1523 ", " 1524 "), withAnon("41000"), io(11000), 41000, 11000},
        {"the resident size moved", replaced(" 1024 1844", " 1025 1844"), withAnon("42000"), io(12000), 42000, 12000},
        {"a thread more", replaced(" 20 0 3 0 ", " 20 0 4 0 "), withAnon("43000"), io(13000), 43000, 13000},
    };
    // Asleep from here on: the io file is looked at every few sweeps, and less often once a look
    // found it where it was, until one finds it moved.
    const std::string asleep = steps.back().stat;
    auto sleeping = [&](const char* what, int sweeps, std::uint64_t inFile, std::uint64_t reported) {
        for (int i = 0; i < sweeps; ++i)
            steps.push_back({what, asleep, withAnon("43000"), io(inFile), 43000, reported});
    };
    sleeping("asleep, no disk I/O", LinuxProcessReading::quietSweepsReused, 13000, 13000);
    sleeping("the bound finds the io where it was", 1, 13000, 13000);
    sleeping("silent: a change waits for the longer bound", LinuxProcessReading::silentSweepsReused, 14000, 13000);
    sleeping("the longer bound: read again", 1, 14000, 14000);
    sleeping("it moved: the short bound again", LinuxProcessReading::quietSweepsReused, 15000, 14000);
    sleeping("the short bound", 1, 15000, 15000);
    LinuxProcessReading reader(proc.string());
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        rewrite(process / "stat", step.stat);
        rewrite(process / "status", step.status);
        rewrite(process / "io", step.io);
        const ProcessReading::Record record = reader.read(4242);
        reader.endSweep();
        ASSERT_TRUE(record.usage);
        EXPECT_EQ(record.usage->footprint, (step.anonKilobytes + 512u) * 1024u);
        EXPECT_EQ(record.usage->diskRead, step.diskRead);
    }
}

// Without a swap area the anonymous memory comes from statm, whose figure is the status file's
// RssAnon in pages; the status file is then read for the user id only when it can have changed.
TEST(LinuxProcessReading, TakesAnonymousMemoryFromStatmWhileNoSwapExists) {
    kestrow::testing::TempFolder temp;
    const std::filesystem::path proc = temp / "proc", process = proc / "4242";
    std::filesystem::create_directories(process);
    for (const char* name : {"stat", "status", "io"})
        std::filesystem::copy_file(std::filesystem::path(fixtures) / "proc/4242" / name, process / name);
    std::filesystem::copy_file(std::filesystem::path(fixtures) / "proc/stat", proc / "stat");
    const std::string stat = readText(process / "stat"), statusText = readText(process / "status");
    const std::uint64_t page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    auto rewrite = [](const std::filesystem::path& path, const std::string& text) {
        std::ofstream(path, std::ios::in | std::ios::out | std::ios::trunc) << text;
    };
    std::ofstream(proc / "swaps") << "";
    std::ofstream(process / "statm") << "";
    // The status file as the kernel writes it for a process with that many anonymous pages.
    auto status = [&](std::uint64_t anonPages, const char* uid) {
        std::string text = statusText;
        std::size_t at = text.find("RssAnon:");
        text.replace(at, text.find('\n', at) - at, "RssAnon:\t" + std::to_string(anonPages * page / 1024) + " kB");
        at = text.find("Uid:");
        text.replace(at, text.find('\n', at) - at, std::string("Uid:\t") + uid + "\t" + uid + "\t" + uid + "\t" + uid);
        if (at = text.find("VmSwap:"); at != std::string::npos)
            text.replace(at, text.find('\n', at) - at, "VmSwap:\t0 kB");
        return text;
    };
    auto statm = [](std::uint64_t anonPages) { return "6051 " + std::to_string(anonPages + 300) + " 300 5 0 900 0\n"; };
    auto stirred = [&](int n) {  // a stat line whose CPU time moved: the memory is read again
        std::string text = stat;
        text.replace(text.find(" 250 75 "), 8, " " + std::to_string(250 + n) + " 75 ");
        return text;
    };
    const std::string noSwap = "Filename\tType\tSize\tUsed\tPriority\n";
    const std::string oneSwap = noSwap + "/swapfile file 1048572 0 -2\n";

    struct Step {
        const char* what;
        std::string swaps, stat, status, statm;
        std::uint64_t anonPages;  // what the reading must report
        std::uint32_t uid;
    };
    const std::vector<Step> steps = {
        {"first sight reads status", noSwap, stirred(0), status(100, "501"), statm(100), 100, 501},
        {"stirred: statm gives the memory", noSwap, stirred(1), status(140, "501"), statm(140), 140, 501},
        {"a changed uid waits for its bound", noSwap, stirred(2), status(150, "502"), statm(150), 150, 501},
        {"a swap area appears: status again", oneSwap, stirred(3), status(160, "502"), statm(999), 160, 502},
        {"swap gone: statm again", noSwap, stirred(4), status(170, "503"), statm(170), 170, 502},
        {"an exec (new name) reads status", noSwap,
         [&] {
             std::string text = stirred(5);
             text.replace(text.find("my (weird) ) proc"), 17, "sudo");
             return text;
         }(),
         status(180, "0"), statm(180), 180, 0},
        {"unreadable swaps: status", "", stirred(6), status(190, "7"), statm(999), 190, 7},
    };
    LinuxProcessReading reader(proc.string());
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        rewrite(proc / "swaps", step.swaps);
        rewrite(process / "stat", step.stat);
        rewrite(process / "status", step.status);
        rewrite(process / "statm", step.statm);
        const ProcessReading::Record record = reader.read(4242);
        reader.endSweep();
        ASSERT_TRUE(record.usage && record.info);
        // The same figure, to the byte, as the status file alone gives for that process.
        const proctext::PidStatus fromStatus = proctext::parsePidStatus(step.status);
        EXPECT_EQ(record.usage->footprint, fromStatus.rssAnon + fromStatus.vmSwap);
        EXPECT_EQ(record.usage->footprint, step.anonPages * page);
        EXPECT_EQ(record.info->uid, step.uid);
    }

    // The bounds: the status file is read again statusRefreshSweeps sweeps after the last read
    // while the process stirs, and stillStatusRefreshSweeps after it while its stat line stands.
    const auto sweepsUntilRead = [&](std::uint32_t uid, const std::function<std::string(int)>& statLine) {
        for (int i = 1; i <= 2 * static_cast<int>(LinuxProcessReading::stillStatusRefreshSweeps); ++i) {
            rewrite(proc / "swaps", noSwap);
            rewrite(process / "stat", statLine(i));
            rewrite(process / "status", status(200, std::to_string(uid).c_str()));
            rewrite(process / "statm", statm(200));
            const ProcessReading::Record record = reader.read(4242);
            reader.endSweep();
            if (!record.info) return std::uint64_t{0};
            if (record.info->uid == uid) return static_cast<std::uint64_t>(i);
        }
        return std::uint64_t{0};
    };
    const int lastStirred = 10 + static_cast<int>(LinuxProcessReading::statusRefreshSweeps);
    EXPECT_EQ(sweepsUntilRead(99, [&](int i) { return stirred(10 + i); }), LinuxProcessReading::statusRefreshSweeps);
    EXPECT_EQ(sweepsUntilRead(98, [&](int) { return stirred(lastStirred); }),
              LinuxProcessReading::stillStatusRefreshSweeps);
    // Still for a while, then one stir: the shorter bound, counted from the last read, is past.
    EXPECT_EQ(sweepsUntilRead(97,
                              [&](int i) {
                                  return stirred(i < static_cast<int>(LinuxProcessReading::statusRefreshSweeps) + 5
                                                     ? lastStirred
                                                     : lastStirred + 1);
                              }),
              LinuxProcessReading::statusRefreshSweeps + 5);
}

TEST(LinuxSystemReading, WalksFixtureZramDrmThermalAndDisks) {
    LinuxSystemReading reader(fixtures + "/proc", fixtures + "/sys", false);
    reader.beginSample();
    const auto memory = reader.memory();
    ASSERT_TRUE(memory);
    const auto& figures = std::get<MeminfoFigures>(*memory);
    EXPECT_EQ(figures.zramUsed, 2048u + 6144u);  // both zram devices' third field
    EXPECT_EQ(reader.memoryTotal(), 16384000ULL * 1024);
    EXPECT_EQ(reader.swap()->total, 2097148ULL * 1024);

    const auto stall = std::get<StallAverages>(reader.pressure());
    EXPECT_EQ(stall.some, 12.5);
    EXPECT_EQ(stall.full, 1.25);
    EXPECT_EQ(reader.cpuTicks()->idle, 293990u);

    // card0 only: connectors and render nodes are not cards, card1 reports nothing.
    EXPECT_EQ(reader.gpuUtilizations(), std::vector<double>{37});

    // vda and nvme0n1 have a device behind them; partitions, loop, zram and dm do not.
    const auto disks = reader.blockCounters();
    ASSERT_TRUE(disks);
    EXPECT_EQ(disks->bytesRead, (1343202u + 2000u) * 512u);
    EXPECT_EQ(disks->bytesWritten, (5630424u + 1000u) * 512u);

    // Zone 2 has no temperature; zone 1's trip points stop at the first gap.
    auto zones = std::get<std::vector<ThermalZone>>(reader.thermal());
    std::sort(zones.begin(), zones.end(), [](auto& a, auto& b) { return a.temperature < b.temperature; });
    ASSERT_EQ(zones.size(), 2u);
    EXPECT_EQ(zones[0].trips.size(), 2u);
    ASSERT_EQ(zones[1].trips.size(), 2u);
    EXPECT_EQ(zones[1].trips[1].type, "critical");
    EXPECT_EQ(SystemFormulas::thermal(zones), ThermalLevel::serious);  // past a passive trip

    LinuxSystemReading empty("/nonexistent-proc-root", "/nonexistent-sys-root", false);
    empty.beginSample();
    EXPECT_FALSE(empty.memory());
    EXPECT_TRUE(std::holds_alternative<std::monostate>(empty.pressure()));
    EXPECT_TRUE(std::get<std::vector<ThermalZone>>(empty.thermal()).empty());
    EXPECT_TRUE(empty.gpuUtilizations().empty());
    EXPECT_FALSE(empty.blockCounters());
    EXPECT_FALSE(empty.cpuTicks());
}

TEST(KeptFile, ReadsTheFileAgainAndWaitsForOneThatIsMissing) {
    kestrow::testing::TempFolder root;
    linuxfs::KeptFile file(root / "value");
    EXPECT_FALSE(file.read());  // not there yet
    kestrow::testing::writeFile(root / "value", "1\n");
    EXPECT_EQ(file.read(), "1\n");  // found on a later call
    kestrow::testing::writeFile(root / "value", "22\n");
    EXPECT_EQ(file.read(), "22\n");  // the same open file, read again from its start
    kestrow::testing::writeFile(root / "value", std::string(10000, 'x'));
    EXPECT_EQ(file.read()->size(), 10000u);  // longer than the first buffer
}

TEST(LinuxSystemReading, OneMeminfoReadingServesTheWholeSample) {
    kestrow::testing::TempFolder root;
    std::filesystem::copy(fixtures + "/proc/meminfo", root / "meminfo");
    LinuxSystemReading reader(root.path(), root / "sys", false);
    const auto rewrite = [&](const char* total) {
        kestrow::testing::writeFile(root / "meminfo",
                                    std::string("MemTotal: ") + total + " kB\nMemAvailable: 10 kB\nSwapTotal: 4 kB\n");
    };
    // Before any sample, each question reads the file.
    rewrite("100");
    EXPECT_EQ(reader.memoryTotal(), 100u * 1024);

    reader.beginSample();
    rewrite("200");
    EXPECT_EQ(reader.memoryTotal(), 100u * 1024);  // still the sample's own reading
    EXPECT_EQ(reader.swap()->total, 4u * 1024);
    reader.beginSample();
    EXPECT_EQ(reader.memoryTotal(), 200u * 1024);
    // The reader keeps the file open, as it keeps the real /proc/meminfo; a reading without the
    // figures leaves the sample without memory and swap.
    kestrow::testing::writeFile(root / "meminfo", "");
    reader.beginSample();
    EXPECT_FALSE(reader.memoryTotal());
    EXPECT_FALSE(reader.swap());
}

// An idle child, named so the test can tell it from another. It dies with the test's thread if the
// test itself dies, and is killed and reaped when it goes out of scope.
class NamedChild {
public:
    // With a pid to take (needs clone3 and the right to choose ids), or any pid.
    explicit NamedChild(const char* name, pid_t wanted = 0) {
        int ready[2];
        if (::pipe2(ready, O_CLOEXEC) != 0) return;
        if (wanted > 0) {
            clone_args args{};
            args.exit_signal = SIGCHLD;
            args.set_tid = reinterpret_cast<std::uintptr_t>(&wanted);
            args.set_tid_size = 1;
            pid_ = static_cast<pid_t>(::syscall(SYS_clone3, &args, sizeof args));
        } else {
            pid_ = ::fork();
        }
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::prctl(PR_SET_NAME, name);
            const char byte = 1;
            (void)!::write(ready[1], &byte, 1);
            for (;;) ::pause();
        }
        const int error = errno;
        ::close(ready[1]);
        if (pid_ > 0) {
            pollfd wait{ready[0], POLLIN, 0};
            ready_ = ::poll(&wait, 1, 5000) == 1;
        }
        ::close(ready[0]);
        errno = error;
    }
    ~NamedChild() { end(); }
    void end() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    pid_t pid() const { return pid_; }
    bool ready() const { return ready_; }

private:
    pid_t pid_ = -1;
    bool ready_ = false;
};

// How many of this process's descriptors are open on files of /proc/PID.
int openFilesOf(pid_t pid) {
    const std::string prefix = "/proc/" + std::to_string(pid) + "/";
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        if (!error && target.compare(0, prefix.size(), prefix) == 0) ++count;
    }
    return count;
}

TEST(LinuxProcessReading, KeepsFilesOnlyForLiveProcesses) {
    LinuxProcessReading reader;
    ProcessSampler sampler(reader);
    std::vector<pid_t> pids;
    {
        std::vector<std::unique_ptr<NamedChild>> children;
        for (int i = 0; i < 8; ++i) children.push_back(std::make_unique<NamedChild>("held-child"));
        for (auto& child : children) ASSERT_TRUE(child->ready());
        const ProcessSampler::Result& result = sampler.sample();
        for (auto& child : children) {
            pids.push_back(child->pid());
            const ProcessSample* sample = find(result.processes, child->pid());
            ASSERT_NE(sample, nullptr);
            EXPECT_EQ(sample->name, "held-child");
            EXPECT_EQ(openFilesOf(child->pid()), 4);  // stat, status, statm and io; the folder is closed
        }
    }
    // The children are gone and reaped: the next sweep lets their files go.
    const ProcessSampler::Result& after = sampler.sample();
    for (const pid_t pid : pids) {
        EXPECT_EQ(find(after.processes, pid), nullptr);
        EXPECT_EQ(openFilesOf(pid), 0);
    }
}

// On this machine, whatever source the reader picks: stopped processes (whose memory cannot move
// between two readings) report exactly what their status files say, sweep after sweep.
TEST(LinuxProcessReading, LiveFootprintsMatchTheStatusFile) {
    std::vector<std::unique_ptr<NamedChild>> children;
    for (int i = 0; i < 4; ++i) children.push_back(std::make_unique<NamedChild>("stopped-child"));
    for (auto& child : children) {
        ASSERT_TRUE(child->ready());
        ASSERT_EQ(::kill(child->pid(), SIGSTOP), 0);
    }
    // Wait (generously) until every child is really stopped.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (auto& child : children) {
        while (readText("/proc/" + std::to_string(child->pid()) + "/stat").find(") T ") == std::string::npos) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    LinuxProcessReading reader;
    ProcessSampler sampler(reader);
    for (int sweep = 0; sweep < 8; ++sweep) {
        const ProcessSampler::Result& result = sampler.sample();
        for (auto& child : children) {
            const ProcessSample* sample = find(result.processes, child->pid());
            ASSERT_NE(sample, nullptr);
            const proctext::PidStatus status =
                proctext::parsePidStatus(readText("/proc/" + std::to_string(child->pid()) + "/status"));
            EXPECT_EQ(sample->footprint, status.rssAnon + status.vmSwap);
        }
    }
}

TEST(LinuxProcessReading, AReusedIdIsReadAsTheNewProcess) {
    if (::geteuid() != 0) GTEST_SKIP() << "choosing a process id needs root";
    LinuxProcessReading reader;
    ProcessSampler sampler(reader);
    auto first = std::make_unique<NamedChild>("first-life");
    ASSERT_TRUE(first->ready());
    const pid_t pid = first->pid();
    sampler.sample();
    const ProcessSampler::Result one = sampler.sample();
    const ProcessSample* old = find(one.processes, pid);
    ASSERT_NE(old, nullptr);
    ASSERT_TRUE(old->cpuPercent);
    const ProcessKey oldKey = old->key;

    // Start times count in clock ticks: let one pass so the two lives differ in it.
    const clock_t started = ::times(nullptr);
    first.reset();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (::times(nullptr) < started + 2 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();

    NamedChild second("second-life", pid);
    if (second.pid() < 0) GTEST_SKIP() << "clone3 cannot take that id here: " << std::strerror(errno);
    ASSERT_EQ(second.pid(), pid);
    ASSERT_TRUE(second.ready());

    const ProcessSampler::Result two = sampler.sample();
    const ProcessSample* fresh = find(two.processes, pid);
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->name, "second-life");  // not the kept files of the first life
    EXPECT_NE(fresh->key, oldKey);
    EXPECT_FALSE(fresh->cpuPercent);  // a new process has no rate yet
}

}  // namespace
}  // namespace brimlet
