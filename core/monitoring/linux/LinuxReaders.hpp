// The Linux readers: processes from /proc, machine-wide figures from /proc and /sys. Each takes its
// roots at construction, so tests can point one at a fixture tree; the live readers use "/proc" and
// "/sys".
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "../ProcessReader.hpp"
#include "../SystemSampler.hpp"
#include "ProcFiles.hpp"
#include "ProcText.hpp"

namespace brimlet {

// Reads each process through one open /proc/PID folder: stat, status and io are opened relative to
// it, so the three always describe the same process even when its id is reused a moment later.
// The sweep keeps those three files open from one sweep to the next and reads them again from the
// start, which costs one system call a file instead of three; a file of a process that has ended
// fails to read, and the id is then opened afresh. Safe to call from any thread.
class LinuxProcessReading final : public ProcessReading {
public:
    // heldFileLimit bounds the descriptors kept open between sweeps; processes beyond it are
    // opened and closed on every sweep. The default is half the soft limit on open files.
    explicit LinuxProcessReading(std::string procRoot = "/proc", std::optional<std::size_t> heldFileLimit = {});

    std::vector<std::int32_t> allPIDs() override;
    std::optional<ProcessUsage> usage(std::int32_t pid) override;
    std::optional<ProcessIdentity> identity(std::int32_t pid) override;
    std::optional<std::string> executablePath(std::int32_t pid) override;
    std::optional<std::vector<std::string>> arguments(std::int32_t pid) override;
    std::optional<std::string> currentDirectory(std::int32_t pid) override;
    std::chrono::nanoseconds uptime() override;
    TickClock clock() override;
    Record read(std::int32_t pid) override;
    void endSweep() override;

    // Descriptors held between sweeps right now.
    std::size_t heldFileCount() const;

private:
    // The open files of one process. The folder stays open only until the end of the sweep that
    // first met the process, for the executable and argument reads that follow on first sight.
    struct Held {
        linuxfs::Descriptor folder, stat, status, statm, io;
        std::uint64_t sweep = 0;
        std::uint64_t statusSweep = 0;  // the sweep that last read the status file
        // What the last full reading found, and how many sweeps since reused it.
        std::optional<proctext::PidStat> lastStat;
        proctext::PidStatus lastStatus;
        std::optional<proctext::PidIO> lastIO;
        int quietSweeps = 0;
        // Whether the io file, read again while the process stood still, showed what it showed before.
        bool ioSilent = false;
        // Whether the stat line moved since the status file was last read.
        bool stirredSinceStatus = false;
        std::size_t count() const;
    };

public:
    // A process whose stat line shows no activity keeps its last memory figures, which only move
    // with that line, and its io figures, but those never for more than this many sweeps in a row,
    // which bounds how late a stray change shows.
    static constexpr int quietSweepsReused = 4;
    // Once such a late look has found the io figures where they were, the process is taken for a
    // sleeper that does no disk I/O, as most are: its io file is then looked at this much less
    // often, until a look finds it moved or the process stirs.
    static constexpr int silentSweepsReused = 14;
    // While no swap area exists, the anonymous memory comes from the small statm file and the
    // status file is read for the user id only: on first sight, when the command name changes
    // (an exec, which is when a set-user-id program changes it), and otherwise this many sweeps
    // after the last read if the stat line moved since.
    static constexpr std::uint64_t statusRefreshSweeps = 30;
    // A process changes its user id itself, by a system call, so one whose stat line stood still
    // ever since the last look could have done so only within less than a clock tick of work and
    // without a page fault: for such a process the looks are this many sweeps apart.
    static constexpr std::uint64_t stillStatusRefreshSweeps = 90;

private:
    linuxfs::Descriptor openFolder(std::int32_t pid) const;
    Held openFiles(std::int32_t pid) const;
    Record readOnce(std::int32_t pid);
    std::optional<Record> readFiles(Held& files);
    std::optional<std::string> readLinkOf(std::int32_t pid, const char* name);
    bool swapless();
    bool listingStands(const std::optional<proctext::TaskCounter>& tasks) const;

    const std::string root_;
    const linuxfs::Descriptor rootFolder_;
    const std::size_t heldFileLimit_;
    const std::uint64_t ticksPerSecond_;
    const std::uint64_t pageSize_;
    std::uint64_t bootTime_ = 0;
    // The listing of /proc is kept with the task counter read just before it; while the counter
    // reads the same, no task has been created or reaped, and the listing still stands. Only when
    // this process's ids are those of the mounted /proc.
    const bool sameNamespace_;
    linuxfs::KeptFile loadavgFile_;
    std::optional<proctext::TaskCounter> listedTasks_;
    std::vector<std::int32_t> listed_;

    mutable std::mutex mutex_;
    std::unordered_map<std::int32_t, Held> held_;
    std::size_t heldFiles_ = 0;
    std::uint64_t sweep_ = 0;
    linuxfs::FileBuffer statText_, statusText_, statmText_, ioText_;
    linuxfs::KeptFile swapsFile_;
    std::uint64_t swapsSweep_ = ~std::uint64_t{0};
    bool swapless_ = false;
};

class LinuxSystemReading final : public SystemReading {
public:
    // NVIDIA's management library is asked only when nvidiaLibrary is true (the live reader); a
    // reader of a fixture tree must not see the machine's own GPU.
    explicit LinuxSystemReading(std::string procRoot = "/proc", std::string sysRoot = "/sys",
                                bool nvidiaLibrary = true);
    ~LinuxSystemReading() override;

    void beginSample() override;
    std::optional<MemoryCounters> memory() override;
    std::optional<std::uint64_t> memoryTotal() override;
    PressureReading pressure() override;
    std::optional<SwapCounters> swap() override;
    std::optional<CPUTicks> cpuTicks() override;
    ThermalReading thermal() override;
    std::vector<double> gpuUtilizations() override;
    std::optional<BlockCounters> blockCounters() override;
    std::optional<VolumeBlocks> volume(const std::string& path) override;
    std::chrono::nanoseconds uptime() override;

    // The devices, zones and cards behind the figures are listed again at most this often; in
    // between only their value files are read.
    static constexpr std::chrono::seconds relistAfter{60};

private:
    class NVML;
    struct Zone {
        linuxfs::KeptFile temperature;
        std::vector<ThermalTrip> trips;
    };
    std::optional<proctext::Meminfo> meminfo();
    std::optional<proctext::Meminfo> readMeminfo();
    // Whether the listings are older than relistAfter (or were never made); restarts the wait.
    bool due(std::optional<std::chrono::nanoseconds>& listedAt);

    const std::string proc_;
    const std::string sys_;
    std::unique_ptr<NVML> nvml_;

    std::mutex mutex_;
    bool sampled_ = false;  // a sample has begun: meminfo_ is that sample's reading
    std::optional<proctext::Meminfo> meminfo_;

    // Kept open between samples; each under filesMutex_.
    std::mutex filesMutex_;
    linuxfs::KeptFile meminfoFile_, statFile_, pressureFile_, diskstatsFile_;
    std::vector<linuxfs::KeptFile> zramFiles_;
    std::vector<Zone> zones_;
    std::vector<linuxfs::KeptFile> gpuBusyFiles_;
    std::vector<std::string> wholeDisks_;
    std::optional<std::chrono::nanoseconds> zramListedAt_, zonesListedAt_, gpusListedAt_, disksListedAt_;
};

}  // namespace brimlet
