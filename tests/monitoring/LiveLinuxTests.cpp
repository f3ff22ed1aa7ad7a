// The Linux readers against this machine: real processes, real counters, the real command.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "base/Json.hpp"
#include "core/monitoring/MonitorEngine.hpp"

extern char** environ;

namespace brimlet {
namespace {

// A child that sleeps in a folder of our choosing, with arguments we can recognise.
class Child {
public:
    explicit Child(const char* folder) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addchdir_np(&actions, folder);
        char* argv[] = {const_cast<char*>("/bin/sleep"), const_cast<char*>("37"), nullptr};
        EXPECT_EQ(posix_spawn(&pid_, "/bin/sleep", &actions, nullptr, argv, environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Child() { stop(); }
    void stop() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};

const ProcessSample* find(const std::vector<ProcessSample>& samples, std::int32_t pid) {
    auto it = std::find_if(samples.begin(), samples.end(), [&](const ProcessSample& s) { return s.pid() == pid; });
    return it == samples.end() ? nullptr : &*it;
}

TEST(LiveProcesses, OwnProcessAndAChildThatComesAndGoes) {
    std::vector<char> ballast(16 << 20, 1);  // private memory that must show in the footprint
    ProcessSampler sampler;
    Child child("/tmp");
    // posix_spawn returns before exec has replaced the image; wait until it has.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    const auto exec = [&] {
        auto info = liveProcessReading().identity(child.pid());
        return info && info->name == "sleep";
    };
    while (!exec() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));

    auto first = sampler.sample();
    const ProcessSample* self = find(first.processes, ::getpid());
    ASSERT_NE(self, nullptr);
    EXPECT_GT(self->footprint, ballast.size() - 4096);
    char exe[4096] = {};
    ASSERT_GT(::readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
    EXPECT_EQ(self->path, std::string(exe));
    EXPECT_EQ(self->ppid, ::getppid());

    const ProcessSample* sleeper = find(first.processes, child.pid());
    ASSERT_NE(sleeper, nullptr);
    EXPECT_EQ(sleeper->name, "sleep");
    EXPECT_EQ(sleeper->argv0, "/bin/sleep");
    EXPECT_EQ(sleeper->app->key, "cmd:sleep");
    EXPECT_EQ(liveProcessReading().arguments(child.pid()), (std::vector<std::string>{"/bin/sleep", "37"}));
    EXPECT_EQ(liveProcessReading().currentDirectory(child.pid()), "/tmp");
    EXPECT_GT(liveProcessReading().identity(child.pid())->startTime, self->key.startTime - 60'000'000);

    volatile double spin = 0;
    for (int i = 0; i < 20'000'000; ++i) spin = spin + i;
    child.stop();
    auto second = sampler.sample();
    EXPECT_EQ(find(second.processes, child.pid()), nullptr);
    self = find(second.processes, ::getpid());
    ASSERT_NE(self, nullptr);
    ASSERT_TRUE(self->cpuPercent);
    EXPECT_GT(*self->cpuPercent, 0);
    EXPECT_TRUE(self->diskReadPerSecond);  // our own io file is readable
}

TEST(LiveSystem, SecondSampleHasLoadAndDiskRates) {
    SystemSampler sampler;
    const SystemStats first = sampler.sample();
    EXPECT_FALSE(first.cpuLoad);
    EXPECT_GT(first.memoryTotal, 0u);
    EXPECT_GT(first.memoryUsed, 0u);
    EXPECT_LE(first.memoryUsed, first.memoryTotal);
    EXPECT_GT(first.diskTotal, 0u);
    EXPECT_LE(first.diskFree, first.diskTotal);
    // The load needs the machine's tick counters to have moved on; poll until they have.
    SystemStats second = sampler.sample();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!second.cpuLoad && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        second = sampler.sample();
    }
    ASSERT_TRUE(second.cpuLoad);
    EXPECT_GE(*second.cpuLoad, 0);
    EXPECT_LE(*second.cpuLoad, 100);
    if (!liveSystemReading().blockCounters()) GTEST_SKIP() << "no physical disk in /sys/block";
    ASSERT_TRUE(second.diskReadPerSecond);
    EXPECT_GE(*second.diskWritePerSecond, 0);
}

TEST(SnapshotCommand, PrintsOneTrueSnapshotAfterASecond) {
    const auto start = std::chrono::steady_clock::now();
    FILE* pipe = ::popen(KESTROW_BRIMLET_EXE " --snapshot-json", "r");
    ASSERT_NE(pipe, nullptr);
    std::string text;
    char buffer[65536];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, n);
    const int status = ::pclose(pipe);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_GE(seconds, 1.0);
    EXPECT_LT(seconds, 10.0);

    // The top-level keys appear in sorted order at the first level of indentation.
    std::vector<std::string> order;
    for (std::size_t pos = 0; (pos = text.find("\n  \"", pos)) != std::string::npos; ++pos) {
        const std::size_t end = text.find('"', pos + 4);
        order.push_back(text.substr(pos + 4, end - pos - 4));
    }
    EXPECT_EQ(order, (std::vector<std::string>{"apps", "date", "heavyProcesses", "hiddenProcessCount",
                                               "readableProcessCount", "system"}));

    auto parsed = kestrow::parseJson(text);
    ASSERT_TRUE(parsed.ok());
    MonitorSnapshot snap;
    ASSERT_TRUE(fromJson(*parsed, snap));
    std::int64_t pids = 0;
    for (std::size_t i = 0; i < snap.apps.size(); ++i) {
        pids += static_cast<std::int64_t>(snap.apps[i].pids.size());
        if (i > 0) {
            EXPECT_GE(snap.apps[i - 1].footprint, snap.apps[i].footprint);
        }
    }
    EXPECT_EQ(pids, snap.readableProcessCount);
    EXPECT_GT(snap.readableProcessCount, 1);
    EXPECT_TRUE(snap.system.cpuLoad);
    const auto age = kestrow::currentDate() - snap.date;
    EXPECT_LT(std::chrono::abs(age), std::chrono::seconds(30));
}

TEST(SnapshotCommand, WithoutArgumentsPrintsUsageAndExitsTwo) {
    const int status = std::system(KESTROW_BRIMLET_EXE " --no-such-flag 2>/dev/null");
    EXPECT_EQ(WEXITSTATUS(status), 2);
}

}  // namespace
}  // namespace brimlet
