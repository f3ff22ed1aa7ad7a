// Processes on Linux, from /proc. Per process and sample: stat, and the memory and io files unless
// stat shows the process idle since the last sample (io then every few samples, fewer while it
// shows no disk I/O); the executable link and the command line only when a process is first seen
// (the sampler caches them).
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <charconv>
#include <limits>

#include "LinuxReaders.hpp"
#include "base/Checked.hpp"
#include "base/Json.hpp"

namespace brimlet {

namespace {

std::uint64_t ticksPerSecond() {
    const long hz = ::sysconf(_SC_CLK_TCK);
    return hz > 0 ? static_cast<std::uint64_t>(hz) : 100;
}

// Half the soft limit on open files: the rest stays for the application.
std::size_t defaultHeldFileLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    const rlim_t soft = limit.rlim_cur == RLIM_INFINITY ? rlim_t{1} << 17 : std::min(limit.rlim_cur, rlim_t{1} << 17);
    return static_cast<std::size_t>(soft / 2);
}

struct PidName {
    char text[16] = {};
    explicit PidName(std::int32_t pid) { std::to_chars(text, text + sizeof text - 1, pid); }
};

int openRelative(int folder, const char* name, int flags) { return ::openat(folder, name, flags | O_CLOEXEC); }

std::uint64_t pageSize() {
    const long size = ::sysconf(_SC_PAGESIZE);
    return size > 0 ? static_cast<std::uint64_t>(size) : 4096;
}

// Whether /proc/self under root names this very process: the listing then shows the process ids of
// this process's own namespace, whose counter /proc/loadavg reports.
bool ownsNamespace(const std::string& root) {
    const auto self = linuxfs::readLink(root + "/self");
    if (!self) return false;
    std::int32_t pid = 0;
    const auto r = std::from_chars(self->data(), self->data() + self->size(), pid);
    return r.ec == std::errc() && r.ptr == self->data() + self->size() && pid == ::getpid();
}

}  // namespace

std::size_t LinuxProcessReading::Held::count() const {
    return static_cast<std::size_t>(folder.valid()) + stat.valid() + status.valid() + statm.valid() + io.valid();
}

LinuxProcessReading::LinuxProcessReading(std::string procRoot, std::optional<std::size_t> heldFileLimit)
    : root_(std::move(procRoot)),
      rootFolder_(::open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
      heldFileLimit_(heldFileLimit.value_or(defaultHeldFileLimit())),
      ticksPerSecond_(ticksPerSecond()),
      pageSize_(pageSize()),
      sameNamespace_(ownsNamespace(root_)),
      loadavgFile_(root_ + "/loadavg"),
      swapsFile_(root_ + "/swaps") {
    std::string stat;
    if (linuxfs::readFile((root_ + "/stat").c_str(), stat)) bootTime_ = proctext::parseBootTime(stat).value_or(0);
}

bool LinuxProcessReading::listingStands(const std::optional<proctext::TaskCounter>& tasks) const {
    return sameNamespace_ && tasks && listedTasks_ && *tasks == *listedTasks_;
}

std::vector<std::int32_t> LinuxProcessReading::allPIDs() {
    std::optional<proctext::TaskCounter> tasks;
    {
        std::lock_guard lock(mutex_);
        if (sameNamespace_) {
            if (auto text = loadavgFile_.read()) tasks = proctext::parseLoadavgTasks(*text);
        }
        if (listingStands(tasks)) return listed_;
    }
    std::vector<std::int32_t> pids;
    DIR* dir = ::opendir(root_.c_str());
    if (!dir) return pids;
    while (const dirent* entry = ::readdir(dir)) {
        const char* name = entry->d_name;
        if (name[0] < '1' || name[0] > '9') continue;
        std::int32_t pid = 0;
        const char* end = name + std::char_traits<char>::length(name);
        const auto r = std::from_chars(name, end, pid);
        if (r.ec == std::errc() && r.ptr == end) pids.push_back(pid);
    }
    ::closedir(dir);
    std::lock_guard lock(mutex_);
    listedTasks_ = tasks;
    if (tasks) listed_ = pids;
    return pids;
}

bool LinuxProcessReading::swapless() {
    if (swapsSweep_ != sweep_) {
        swapsSweep_ = sweep_;
        const auto text = swapsFile_.read();
        swapless_ = text && proctext::swapsListNone(*text);
    }
    return swapless_;
}

linuxfs::Descriptor LinuxProcessReading::openFolder(std::int32_t pid) const {
    if (pid < 1) return {};
    return linuxfs::Descriptor(openRelative(rootFolder_.get(), PidName(pid).text, O_RDONLY | O_DIRECTORY));
}

LinuxProcessReading::Held LinuxProcessReading::openFiles(std::int32_t pid) const {
    Held files;
    files.folder = openFolder(pid);
    if (!files.folder.valid()) return files;
    files.stat = linuxfs::Descriptor(openRelative(files.folder.get(), "stat", O_RDONLY));
    files.status = linuxfs::Descriptor(openRelative(files.folder.get(), "status", O_RDONLY));
    files.io = linuxfs::Descriptor(openRelative(files.folder.get(), "io", O_RDONLY));
    return files;
}

ProcessReading::Record LinuxProcessReading::readOnce(std::int32_t pid) {
    std::lock_guard lock(mutex_);
    Held files = openFiles(pid);
    auto record = readFiles(files);
    return record ? std::move(*record) : Record{};
}

std::optional<ProcessReading::Record> LinuxProcessReading::readFiles(Held& files) {
    if (!files.stat.valid() || !statText_.rereadWhole(files.stat.get())) return std::nullopt;
    auto stat = proctext::parsePidStat(statText_.text());
    if (!stat) return std::nullopt;

    // Most processes sleep through most sweeps, and the kernel's work of writing out their files
    // is most of a sweep's cost. The memory figures move only with the resident size or a page
    // fault, both in the stat line: while the line stands still, the last ones are still exact.
    // I/O of less than one clock tick can go by without a trace in the line, so for a process that
    // has not stirred the io file is read again only every few sweeps.
    const bool still = files.lastStat && files.lastStat->sameActivity(*stat);
    const bool ioDue = !still || files.quietSweeps >= (files.ioSilent ? silentSweepsReused : quietSweepsReused);
    // The user id can change without a trace too (a set-user-id call): the status file is read
    // again on an exec, which renames the command, and otherwise within a bound, a longer one for
    // a process that has not stirred since.
    files.stirredSinceStatus = files.stirredSinceStatus || !still;
    const bool statusDue =
        !files.lastStatus.uid ||
        sweep_ - files.statusSweep >= (files.stirredSinceStatus ? statusRefreshSweeps : stillStatusRefreshSweeps) ||
        (files.lastStat && files.lastStat->comm != stat->comm);
    if (statusDue || (!still && (!swapless() || !files.statm.valid()))) {
        if (!files.status.valid() || !statusText_.rereadWhole(files.status.get())) return std::nullopt;
        proctext::PidStatus status = proctext::parsePidStatus(statusText_.text());
        if (!status.uid) return std::nullopt;
        files.lastStatus = status;
        files.statusSweep = sweep_;
        files.stirredSinceStatus = false;
    } else if (!still) {
        // Without swap there is no swapped-out memory, and the anonymous part of the resident
        // memory is in statm, which costs the kernel a fraction of status to write out.
        if (!statmText_.rereadWhole(files.statm.get())) return std::nullopt;
        const auto anonPages = proctext::parseStatmAnonPages(statmText_.text());
        if (!anonPages) return std::nullopt;
        files.lastStatus.rssAnon = kestrow::checkedMultiply(*anonPages, pageSize_, "anonymous memory overflow");
        files.lastStatus.vmSwap = 0;
    }
    if (ioDue) {
        // Another user's io file cannot be opened without ptrace rights: its rates stay unknown.
        std::optional<proctext::PidIO> io;
        if (files.io.valid() && ioText_.rereadWhole(files.io.get())) io = proctext::parsePidIO(ioText_.text());
        files.ioSilent = still && io && files.lastIO && *io == *files.lastIO;
        files.lastIO = io;
        files.quietSweeps = 0;
    } else {
        ++files.quietSweeps;
    }
    const proctext::PidStatus& status = files.lastStatus;
    const std::optional<proctext::PidIO>& io = files.lastIO;
    files.lastStat = *stat;

    ProcessUsage usage;
    usage.footprint = kestrow::checkedAdd(status.rssAnon, status.vmSwap, "footprint overflow");
    usage.cpuTicks = stat->utime + stat->stime;
    usage.diskCountersReadable = io.has_value();
    if (io) {
        usage.diskRead = io->readBytes;
        usage.diskWritten = io->writeBytes;
    }

    if (stat->ppid > std::numeric_limits<std::int32_t>::max()) kestrow::fatalError("parent process id beyond 32 bits");
    ProcessIdentity info;
    info.ppid = static_cast<std::int32_t>(stat->ppid);
    info.uid = *status.uid;
    info.startTime = proctext::startMicros(bootTime_, stat->startTicks, ticksPerSecond_);
    info.name = kestrow::repairUtf8(stat->comm);
    return Record{usage, std::move(info)};
}

ProcessReading::Record LinuxProcessReading::read(std::int32_t pid) {
    std::lock_guard lock(mutex_);
    if (auto it = held_.find(pid); it != held_.end()) {
        if (auto record = readFiles(it->second)) {
            it->second.sweep = sweep_;
            return std::move(*record);
        }
        // The process has ended (its files answer no more); the id may already name another one.
        heldFiles_ -= it->second.count();
        held_.erase(it);
    }
    Held files = openFiles(pid);
    auto record = readFiles(files);
    if (!record) return {};
    // statm serves only later sweeps: a process read once and let go never needs it.
    if (heldFiles_ + files.count() + 1 <= heldFileLimit_) {
        files.statm = linuxfs::Descriptor(openRelative(files.folder.get(), "statm", O_RDONLY));
        files.sweep = sweep_;
        heldFiles_ += files.count();
        held_.emplace(pid, std::move(files));
    }
    return std::move(*record);
}

void LinuxProcessReading::endSweep() {
    std::lock_guard lock(mutex_);
    for (auto it = held_.begin(); it != held_.end();) {
        Held& files = it->second;
        if (files.sweep != sweep_) {
            heldFiles_ -= files.count();
            it = held_.erase(it);
            continue;
        }
        if (files.folder.valid()) {
            files.folder.reset();
            --heldFiles_;
        }
        ++it;
    }
    ++sweep_;
}

std::size_t LinuxProcessReading::heldFileCount() const {
    std::lock_guard lock(mutex_);
    return heldFiles_;
}

// Single questions from elsewhere in the product read the process once and keep nothing open.
std::optional<ProcessUsage> LinuxProcessReading::usage(std::int32_t pid) { return readOnce(pid).usage; }

std::optional<ProcessIdentity> LinuxProcessReading::identity(std::int32_t pid) { return readOnce(pid).info; }

std::optional<std::string> LinuxProcessReading::readLinkOf(std::int32_t pid, const char* name) {
    std::optional<std::string> target;
    {
        std::lock_guard lock(mutex_);
        // A process met in this sweep is still read through the folder its counters came from.
        if (auto it = held_.find(pid); it != held_.end() && it->second.folder.valid())
            target = linuxfs::readLinkAt(it->second.folder.get(), name);
        else if (auto folder = openFolder(pid); folder.valid()) target = linuxfs::readLinkAt(folder.get(), name);
    }
    if (!target) return std::nullopt;
    return kestrow::repairUtf8(*target);
}

std::optional<std::string> LinuxProcessReading::executablePath(std::int32_t pid) { return readLinkOf(pid, "exe"); }

std::optional<std::string> LinuxProcessReading::currentDirectory(std::int32_t pid) { return readLinkOf(pid, "cwd"); }

std::optional<std::vector<std::string>> LinuxProcessReading::arguments(std::int32_t pid) {
    linuxfs::FileBuffer text;
    {
        std::lock_guard lock(mutex_);
        bool read = false;
        if (auto it = held_.find(pid); it != held_.end() && it->second.folder.valid())
            read = linuxfs::readFileAt(it->second.folder.get(), "cmdline", text);
        else if (auto folder = openFolder(pid); folder.valid())
            read = linuxfs::readFileAt(folder.get(), "cmdline", text);
        if (!read) return std::nullopt;
    }
    std::vector<std::string> args;
    std::string_view rest = text.text();
    while (!rest.empty()) {
        const std::size_t end = rest.find('\0');
        args.push_back(kestrow::repairUtf8(rest.substr(0, end)));
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    return args;
}

std::chrono::nanoseconds LinuxProcessReading::uptime() { return linuxfs::uptime(); }

TickClock LinuxProcessReading::clock() { return TickClock::current(); }

TickClock TickClock::current() {
    // Linux reports CPU time in clock ticks of 1/_SC_CLK_TCK seconds.
    static const TickClock clock{1'000'000'000ULL, ticksPerSecond()};
    return clock;
}

ProcessReading& liveProcessReading() {
    static LinuxProcessReading reader;
    return reader;
}

}  // namespace brimlet
