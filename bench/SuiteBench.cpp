// What one suite member costs among many: starts MEMBERS members (this program in member mode, each a
// real participant on the system loop, publishing every 2 s with a ttl of 10 s as the app does) on a
// throw-away suite folder, plus a writer in this process that rewrites one record every INTERVAL
// seconds (0: as fast as it can, a storm). After 3 s to settle it measures one member for SECONDS and
// prints its CPU time as a share of one core, its resident and peak memory, and the writer's rate.
//
//   suite_bench [MEMBERS=20] [INTERVAL=0.1] [SECONDS=20]
//   suite_bench member APP FOLDER      (what the members run)
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "base/MainLoop.hpp"
#include "base/UserDefaults.hpp"
#include "suite/ui/SuiteParticipant.hpp"

extern char** environ;

using namespace kestrow;
using namespace kestrow::suite;

namespace {

class QuietItem final : public SuiteStatusItem {
public:
    bool isVisible() const override { return true; }
    void update(const SuiteValues&, GlanceLevel) override {}
    void withdraw() override {}
};

int member(const char* id, const char* folder) {
    const std::optional<SuiteApp> app = SuiteApp::fromRawValue(id);
    if (!app) return 2;
    std::unique_ptr<MainLoop> loop = makeSystemMainLoop(true);
    InMemoryUserDefaults defaults;
    SuiteStatusItemFactory items;
    items.make = [](SuiteHost&) { return std::make_unique<QuietItem>(); };
    SuiteParticipant participant(*app, {SuiteFolder(folder)}, defaults, items, *loop, {});
    double value = 0;
    auto publish = [&] {
        value = value >= 99 ? 0 : value + 1;
        participant.publish(GlanceLevel::ok, {GlanceMetric{"load", "Load", value, "%", GlanceLevel::ok}}, 10);
    };
    publish();
    auto every = loop->repeat(std::chrono::seconds(2), std::chrono::milliseconds(200), publish);
    const pid_t parent = ::getppid();
    auto orphan = loop->repeat(std::chrono::milliseconds(500), std::chrono::milliseconds(100), [&] {
        if (::getppid() != parent) loop->stop();
    });
    loop->run();
    participant.shutdown();
    return 0;
}

// utime + stime in seconds, and VmRSS / VmHWM in kB, of a process.
struct Usage {
    double cpu = 0;
    long rssKB = 0, peakKB = 0;
};

Usage usage(pid_t pid) {
    Usage u;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    const std::size_t close = text.rfind(')');
    if (close != std::string::npos) {
        std::istringstream fields(text.substr(close + 2));
        std::string field;
        unsigned long long utime = 0, stime = 0;
        for (int i = 3; i <= 15 && fields >> field; ++i) {
            if (i == 14) utime = std::stoull(field);
            if (i == 15) stime = std::stoull(field);
        }
        u.cpu = static_cast<double>(utime + stime) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    }
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) u.rssKB = std::atol(line.c_str() + 6);
        if (line.rfind("VmHWM:", 0) == 0) u.peakKB = std::atol(line.c_str() + 6);
    }
    return u;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "member") return member(argv[2], argv[3]);
    const int members = argc > 1 ? std::atoi(argv[1]) : 20;
    const double interval = argc > 2 ? std::atof(argv[2]) : 0.1;
    const double seconds = argc > 3 ? std::atof(argv[3]) : 20;
    if (members < 1 || interval < 0 || seconds <= 0) {
        std::fputs("usage: suite_bench [MEMBERS=20] [INTERVAL=0.1] [SECONDS=20]\n", stderr);
        return 2;
    }
    char pattern[] = "/tmp/kestrow-suite-bench-XXXXXX";
    if (!::mkdtemp(pattern)) return 1;
    const SuiteFolder folder(std::string(pattern) + "/Suite");
    if (folder.prepare().failed()) return 1;

    // The measured member first, then the others, cycling through the catalogue (ids repeat).
    std::vector<pid_t> pids;
    char self[4096];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return 1;
    self[length] = 0;
    for (int i = 0; i <= members; ++i) {
        const std::string app(SuiteApp::rawValues[static_cast<std::size_t>(i) % SuiteApp::rawValues.size()]);
        std::vector<std::string> args = {self, "member", app, folder.url};
        std::vector<char*> argv2;
        for (auto& a : args) argv2.push_back(a.data());
        argv2.push_back(nullptr);
        pid_t pid = -1;
        if (posix_spawn(&pid, self, nullptr, nullptr, argv2.data(), environ) != 0) break;
        pids.push_back(pid);
    }
    const pid_t measured = pids.front();

    std::atomic<bool> stop{false};
    std::atomic<long> writes{0};
    std::thread writer([&] {
        double value = 0;
        while (!stop) {
            value = value >= 99 ? 0 : value + 1;
            const GlanceRecord record(SuiteApp::garrow, false, GlanceState::running, epochSeconds(WallClock::now()), 10,
                                      GlanceLevel::ok, {GlanceMetric{"load", "Load", value, "%", GlanceLevel::ok}});
            if (GlanceStore{folder}.write(record).ok()) ++writes;
            if (interval > 0) std::this_thread::sleep_for(std::chrono::duration<double>(interval));
        }
    });

    std::this_thread::sleep_for(std::chrono::seconds(3));
    const Usage before = usage(measured);
    const long writesBefore = writes;
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const Usage after = usage(measured);
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const long writesDuring = writes - writesBefore;
    stop = true;
    writer.join();

    for (const pid_t pid : pids) ::kill(pid, SIGTERM);
    for (const pid_t pid : pids) ::waitpid(pid, nullptr, 0);
    std::filesystem::remove_all(pattern);

    std::printf("members besides the measured one: %d\n", members);
    std::printf("writer: %.0f record rewrites a second (%s)\n", writesDuring / elapsed,
                interval > 0 ? "paced" : "as fast as it can");
    std::printf("measured member: CPU %.2f %% of one core over %.1f s\n", 100.0 * (after.cpu - before.cpu) / elapsed,
                elapsed);
    std::printf("measured member: resident %ld kB, peak %ld kB\n", after.rssKB, after.peakKB);
    return 0;
}
