// The real executable, headless, against a temporary suite folder, private settings and, where the
// machine has dbus-daemon, a private session bus with a stand-in notification service.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

#include "base/Json.hpp"
#include "base/MainLoop.hpp"
#include "suite/protocol/SuiteFolder.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/LockProbe.hpp"
#include "tests/support/TempFolder.hpp"

extern char** environ;

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::suite::GlanceRecord;
using kestrow::suite::GlanceState;
using kestrow::suite::GlanceStore;
using kestrow::suite::SuiteApp;
using kestrow::suite::SuiteFolder;
using kestrow::testing::TempFolder;
using Clock = std::chrono::steady_clock;

using Child = kestrow::testing::ChildProcess;
using kestrow::testing::waitUntil;

std::string readFile(const std::string& path) { return kestrow::testing::readWholeFile(path); }
bool waitFor(const std::function<bool()>& done, double seconds) { return waitUntil(done, seconds); }

struct HeadlessApp : ::testing::Test {
    TempFolder temp;
    SuiteFolder folder{temp / "suite"};
    // Private settings, and no session bus unless a test brings one.
    std::map<std::string, std::string> environment{{"XDG_CONFIG_HOME", temp / "config"},
                                                   {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + temp / "no-bus"}};

    std::unique_ptr<Child> launch(std::vector<std::string> arguments, const std::string& name = "app") {
        arguments.insert(arguments.begin(), KESTROW_BRIMLET_PATH);
        return std::make_unique<Child>(std::move(arguments), environment, temp / (name + ".out"),
                                       temp / (name + ".err"));
    }
    std::optional<GlanceRecord> ownRecord() const {
        const auto read = GlanceStore{folder}.read(SuiteApp::brimlet);
        if (!read || read->failed()) return std::nullopt;
        return read->value();
    }
    // Alerts for low disk only, with a threshold no disk reaches: the first sample raises one.
    void lowDiskAlways() {
        fs::create_directories(temp / "config/kestrow");
        const std::string settings = R"({"heavyAppEnabled":false,"heavyAppThreshold":8589934592,)"
                                     R"("lowDiskEnabled":true,"lowDiskThreshold":1000000000000000000,)"
                                     R"("memoryPressureEnabled":false})";
        const kestrow::JsonValue file(kestrow::JsonObject{{"alertSettings", kestrow::JsonValue(settings)}});
        std::ofstream(temp / "config/kestrow/com.kestrow.brimlet.json") << *kestrow::writeJson(file);
    }
};

using kestrow::testing::lockIsFree;

TEST_F(HeadlessApp, PublishesHostsWithASecondMemberAndStopsCleanlyOnSIGTERM) {
    auto app = launch({"--suite-folder", folder.url});
    ASSERT_TRUE(app->started());
    ASSERT_TRUE(waitFor([&] { return ownRecord().has_value(); }, 10)) << app->err();
    const GlanceRecord first = *ownRecord();
    EXPECT_EQ(first.state, GlanceState::running);
    EXPECT_EQ(first.ttl, 10);
    EXPECT_FALSE(first.hosting);
    EXPECT_FALSE(first.metrics.empty());

    // A second member publishes: the suite turns active and this app, able to host, hosts.
    const GlanceRecord other(SuiteApp::corvane, false, GlanceState::running,
                             kestrow::epochSeconds(kestrow::WallClock::now()), 30, kestrow::suite::GlanceLevel::ok, {});
    ASSERT_TRUE(GlanceStore{folder}.write(other).ok());
    ASSERT_TRUE(waitFor(
        [&] {
            auto r = ownRecord();
            return r && r->hosting;
        },
        8))
        << app->err();
    const double hostedAt = ownRecord()->at;
    // The record is renewed before readers could see it expire.
    ASSERT_TRUE(waitFor(
        [&] {
            auto r = ownRecord();
            return r && r->at > hostedAt;
        },
        8))
        << app->err();
    EXPECT_LT(ownRecord()->at - hostedAt, first.ttl * 0.5 + 1);

    EXPECT_EQ(app->stop(SIGTERM, 5), 0) << app->err();
    const auto last = ownRecord();
    ASSERT_TRUE(last);
    EXPECT_EQ(last->state, GlanceState::stopped);
    EXPECT_TRUE(lockIsFree(folder.lockURL()));
    EXPECT_NE(app->err().find("first-sample-ready"), std::string::npos);
}

TEST_F(HeadlessApp, SIGINTEndsItToo) {
    auto app = launch({"--suite-folder", folder.url});
    ASSERT_TRUE(waitFor([&] { return ownRecord().has_value(); }, 10)) << app->err();
    EXPECT_EQ(app->stop(SIGINT, 5), 0) << app->err();
    EXPECT_EQ(ownRecord()->state, GlanceState::stopped);
}

// A closed terminal (SIGHUP) stops it as cleanly as SIGTERM: the stopped record, the lock free.
TEST_F(HeadlessApp, SIGHUPStopsItCleanly) {
    auto app = launch({"--suite-folder", folder.url});
    ASSERT_TRUE(waitFor([&] { return ownRecord().has_value(); }, 10)) << app->err();
    EXPECT_EQ(app->stop(SIGHUP, 10), 0) << app->err();
    EXPECT_EQ(ownRecord()->state, GlanceState::stopped);
    EXPECT_TRUE(lockIsFree(folder.lockURL()));
}

// Its standard error is a pipe whose reader has gone ("2>&1 | head -1"): the app still publishes,
// and still writes its stopped record when told to stop.
TEST_F(HeadlessApp, AReaderThatWentAwayNeverKillsIt) {
    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    ::close(pipeEnds[0]);  // nobody will ever read
    std::vector<std::string> arguments{KESTROW_BRIMLET_PATH, "--suite-folder", folder.url};
    std::vector<char*> argv;
    for (auto& a : arguments) argv.push_back(a.data());
    argv.push_back(nullptr);
    std::vector<std::string> envStrings;
    for (char** e = environ; *e; ++e) envStrings.emplace_back(*e);
    for (const auto& [key, value] : environment) envStrings.push_back(std::string(key).append("=").append(value));
    std::vector<char*> envp;
    for (auto& e : envStrings) envp.push_back(e.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDERR_FILENO);
    pid_t pid = -1;
    // SIGPIPE is at its default here, as it is in a shell pipeline.
    const int spawned = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeEnds[1]);
    ASSERT_EQ(spawned, 0);
    const bool published = waitFor([&] { return ownRecord().has_value(); }, 10);
    ::kill(pid, SIGTERM);
    int status = 0;
    ASSERT_TRUE(waitFor([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, 10));
    EXPECT_TRUE(published);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    ASSERT_TRUE(ownRecord());
    EXPECT_EQ(ownRecord()->state, GlanceState::stopped);
}

// Without --suite-folder, Linux keeps the suite where XDG says application data lives.
TEST_F(HeadlessApp, TheDefaultSuiteFolderIsInTheXDGDataFolder) {
    environment["XDG_DATA_HOME"] = temp / "data";
    auto app = launch({});
    const SuiteFolder standard(temp / "data/kestrow/suite");
    const auto own = [&] { return GlanceStore{standard}.read(SuiteApp::brimlet); };
    ASSERT_TRUE(waitFor(
        [&] {
            auto r = own();
            return r && r->ok();
        },
        10))
        << app->err();
    EXPECT_EQ(app->stop(SIGTERM, 10), 0) << app->err();
    struct stat st {};
    ASSERT_EQ(::stat(standard.url.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
}

TEST_F(HeadlessApp, LaunchValuesAreSettledFirstAndTheSnapshotBeforeThem) {
    struct Case {
        std::vector<std::string> arguments;
        std::string standardError;
    };
    const std::vector<Case> cases = {
        {{"--suite-folder", "/etc/kestrow-suite"},
         "KestrowBrimlet: --suite-folder must be inside the temporary folder: /etc/kestrow-suite\n"},
        {{"--suite-folder", "suite"}, "KestrowBrimlet: --suite-folder needs an absolute path: suite\n"},
        {{"--suite-folder"}, "KestrowBrimlet: --suite-folder needs a path\n"},
        {{"--suite-folder", folder.url, "--no-such-flag"},
         "KestrowBrimlet: unknown argument --no-such-flag (see --help)\n"},
        // Headless, the window options do nothing, so they are not taken.
        {{"--suite-folder", folder.url, "--floating"}, "KestrowBrimlet: unknown argument --floating (see --help)\n"},
        {{"--suite-folder", folder.url + "\nforged"},
         "KestrowBrimlet: --suite-folder must not contain control characters: " + folder.url +
             "\\x0aforged (see --help)\n"},
        {{"--suite-folder", folder.url + "/" + std::string(5000, 'n')},
         "KestrowBrimlet: --suite-folder names a folder no file system can hold: " + folder.url + "/" +
             std::string(5000, 'n') + " (see --help)\n"},
        {{"--open", "--no-such-flag", "--suite-folder", "relative"},
         "KestrowBrimlet: --suite-folder needs an absolute path: relative\n"},
    };
    for (const Case& c : cases) {
        auto app = launch(c.arguments);
        EXPECT_EQ(app->waitExit(5), 2) << c.arguments.back();
        EXPECT_EQ(app->err(), c.standardError);
        EXPECT_EQ(app->out(), "");
    }

    // The snapshot comes first: the invalid folder is not even looked at.
    auto snapshot = launch({"--snapshot-json", "--suite-folder", "/etc/kestrow-suite"});
    ASSERT_EQ(snapshot->waitExit(10), 0) << snapshot->err();
    auto parsed = kestrow::parseJson(snapshot->out());
    ASSERT_TRUE(parsed.ok()) << snapshot->out();
    const kestrow::JsonValue& json = *parsed;
    for (const char* key : {"apps", "date", "heavyProcesses", "hiddenProcessCount", "readableProcessCount", "system"})
        EXPECT_NE(json.find(key), nullptr) << key;
    EXPECT_EQ(snapshot->err(), "");

    auto help = launch({"--help"});
    EXPECT_EQ(help->waitExit(10), 0);
    EXPECT_NE(help->out().find("--snapshot-json"), std::string::npos);
    EXPECT_NE(help->out().find("SIGTERM"), std::string::npos);
    EXPECT_EQ(help->out().find("--floating"), std::string::npos) << "only what works on Linux is listed";
    auto version = launch({"--version"});
    EXPECT_EQ(version->waitExit(10), 0);
    EXPECT_TRUE(std::regex_match(version->out(), std::regex("KestrowBrimlet [0-9]+\\.[0-9]+\\.[0-9]+\n")))
        << version->out();
}

TEST_F(HeadlessApp, WithoutASessionBusAnAlertIsLoggedUndelivered) {
    lowDiskAlways();
    auto app = launch({"--suite-folder", folder.url});
    const std::string expected = "alert not delivered: Disk space is low — ";
    ASSERT_TRUE(waitFor([&] { return app->err().find(expected) != std::string::npos; }, 10)) << app->err();
    EXPECT_EQ(app->stop(SIGTERM, 5), 0);
}

// A private session bus with the stand-in notification service on it, for the app to find through
// its environment; the test skips where the machine has no dbus-daemon.
struct NotificationRig {
    std::unique_ptr<Child> bus, sink;
    std::string received;
};

void startNotificationRig(HeadlessApp& test, NotificationRig& rig, std::vector<std::string> sinkOptions = {}) {
    const char* daemon = "/usr/bin/dbus-daemon";
    if (::access(daemon, X_OK) != 0) GTEST_SKIP() << "dbus-daemon is not installed (package dbus-daemon)";
    const std::string socket = test.temp / "bus";
    rig.bus = std::make_unique<Child>(
        std::vector<std::string>{daemon, "--session", "--nofork", "--nopidfile", "--address=unix:path=" + socket},
        std::map<std::string, std::string>{}, test.temp / "bus.out", test.temp / "bus.err");
    ASSERT_TRUE(waitFor([&] { return fs::exists(socket); }, 10)) << rig.bus->err();
    test.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + socket;
    rig.received = test.temp / "notifications.txt";
    sinkOptions.insert(sinkOptions.begin(), {NOTIFICATION_SINK_PATH, rig.received});
    rig.sink = std::make_unique<Child>(sinkOptions, test.environment, test.temp / "sink.out", test.temp / "sink.err");
    ASSERT_TRUE(waitFor([&] { return fs::exists(rig.received); }, 10)) << rig.sink->err();
}

TEST_F(HeadlessApp, ALowDiskAlertReachesTheNotificationService) {
    NotificationRig rig;
    startNotificationRig(*this, rig);
    if (IsSkipped() || HasFatalFailure()) return;
    const std::string& received = rig.received;

    lowDiskAlways();
    auto app = launch({"--suite-folder", folder.url});
    ASSERT_TRUE(waitFor([&] { return !readFile(received).empty(); }, 10)) << app->err();
    // Summary, body, icon name and urgency (1, normal: low disk space is not an emergency).
    const std::regex line(R"(Disk space is low\t[0-9.]+ [KMGT]?B free\. [^\t]+\tdrive-harddisk\t1\n)");
    EXPECT_TRUE(std::regex_match(readFile(received), line)) << readFile(received);
    EXPECT_TRUE(waitFor([&] { return app->err().find("alert posted: Disk space is low") != std::string::npos; }, 10))
        << app->err();
    EXPECT_EQ(app->stop(SIGTERM, 10), 0);
    // The sink and the bus end with the signal (and are reaped here or by their destructors).
    rig.sink->stop(SIGTERM, 10);
    rig.bus->stop(SIGTERM, 10);
}

// A notification service that takes the call and never answers must neither hold the alert up
// forever nor hold up stopping: the post is given up when the app stops, not when its deadline ends.
TEST_F(HeadlessApp, ASilentNotificationServiceNeverHoldsUpStopping) {
    NotificationRig rig;
    startNotificationRig(*this, rig, {"--silent"});
    if (IsSkipped() || HasFatalFailure()) return;
    lowDiskAlways();
    auto app = launch({"--suite-folder", folder.url});
    // The alert is on its way once the app has published its first record (the sample that
    // raises it comes first).
    ASSERT_TRUE(waitFor([&] { return ownRecord().has_value(); }, 10)) << app->err();
    EXPECT_EQ(app->stop(SIGTERM, 30), 0);
    const std::string log = app->err();
    EXPECT_NE(log.find("Notify given up: the app is stopping"), std::string::npos) << log;
    EXPECT_EQ(log.find("alert posted"), std::string::npos) << log;
    rig.sink->stop(SIGTERM, 10);
    rig.bus->stop(SIGTERM, 10);
}

}  // namespace
}  // namespace brimlet
