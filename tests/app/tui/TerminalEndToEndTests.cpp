// The real program's "--tui" in a real terminal: tmux runs it in a detached 100×30 session with a
// temporary home, settings and suite folder; the test types keys and reads the screen back. The
// overview shows figures, the apps page lists this test's own child, the cleanup page measures and
// cleans exactly the chosen cache and the approved personal item (into the Trash), and q leaves a
// stopped record and a free lock behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>

#include "suite/protocol/SuiteFolder.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/LockProbe.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::suite::GlanceState;
using kestrow::suite::GlanceStore;
using kestrow::suite::SuiteApp;
using kestrow::suite::SuiteFolder;
using kestrow::testing::ChildProcess;
using kestrow::testing::TempFolder;
using kestrow::testing::waitUntil;

std::string tmuxPath() {
    for (const char* candidate : {"/usr/bin/tmux", "/usr/local/bin/tmux", "/opt/homebrew/bin/tmux", "/bin/tmux"})
        if (::access(candidate, X_OK) == 0) return candidate;
    return {};
}

using kestrow::testing::lockIsFree;

struct TerminalEndToEnd : ::testing::Test {
    TempFolder temp;
    std::string home = temp / "home";
    SuiteFolder folder{temp / "suite"};
    std::string socket = temp / "tmux.sock";
    std::string tmux = tmuxPath();
    bool serverStarted = false;

    void SetUp() override {
        if (tmux.empty()) GTEST_SKIP() << "tmux is not installed: the terminal end-to-end tests need it";
        fs::create_directories(home);
    }
    void TearDown() override {
        if (serverStarted) run({"kill-server"});
    }

    // One tmux command against this test's own server; its output.
    std::string run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {tmux, "-S", socket});
        ChildProcess child(arguments, {}, temp / "tmux.out", temp / "tmux.err");
        child.waitExit(30);
        return child.out();
    }
    void start(const std::string& extraEnvironment = {}) {
        const std::string command =
            "env HOME='" + home + "' XDG_CONFIG_HOME='" + temp / "config" + "' XDG_DATA_HOME='" + home +
            "/.local/share' XDG_CACHE_HOME='" + home + "/.cache' LANG=C.UTF-8 LC_ALL=C.UTF-8 " + extraEnvironment +
            " '" + KESTROW_BRIMLET_PATH + "' --tui --suite-folder '" + folder.url + "' 2>'" + temp / "app.err" + "'";
        run({"-f", "/dev/null", "new-session", "-d", "-x", "100", "-y", "30", "-s", "brimlet", "-c", temp.path(),
             command});
        serverStarted = true;
    }
    std::string screen() { return run({"capture-pane", "-p", "-t", "brimlet"}); }
    bool shows(const std::string& text, double seconds = 60) {
        return waitUntil([&] { return screen().find(text) != std::string::npos; }, seconds);
    }
    void keys(const std::vector<std::string>& keys) {
        std::vector<std::string> arguments{"send-keys", "-t", "brimlet"};
        arguments.insert(arguments.end(), keys.begin(), keys.end());
        run(arguments);
    }
    bool sessionEnded() {
        ChildProcess child({tmux, "-S", socket, "has-session", "-t", "brimlet"}, {}, temp / "has.out",
                           temp / "has.err");
        return child.waitExit(30) != 0;
    }
    std::string log() { return kestrow::testing::readWholeFile(temp / "app.err"); }
};

TEST_F(TerminalEndToEnd, OverviewAppsAndAQuitThatLeavesTheSuiteCleanly) {
    // A child of this test under a name of its own, for the apps page to list.
    const std::string sleeper = temp / "brimlet-e2e-sleeper";
    fs::copy_file("/bin/sleep", sleeper);
    ChildProcess child({sleeper, "300"}, {}, temp / "sleeper.out", temp / "sleeper.err");
    ASSERT_TRUE(child.started());

    start();
    ASSERT_TRUE(shows("Memory")) << screen() << log();
    const std::string overview = screen();
    for (const char* text :
         {"Kestrow Brimlet", "[1 Overview]", "Pressure", "Thermal", "Top Apps", "Last 5 minutes", "q quit", "? help"})
        EXPECT_NE(overview.find(text), std::string::npos) << text << "\n" << overview;

    keys({"2", "/"});
    keys({"-l", "brimlet-e2e"});
    keys({"Enter"});
    EXPECT_TRUE(shows("brimlet-e2e-sleeper")) << screen();
    EXPECT_TRUE(shows("Filter: brimlet-e2e")) << screen();

    keys({"?"});
    EXPECT_TRUE(shows("ask the selected app to quit")) << screen();
    keys({"Escape"});

    // The resize reaches the program through its loop: the frame is redrawn at the new size.
    run({"resize-window", "-t", "brimlet", "-x", "70", "-y", "20"});
    EXPECT_TRUE(shows("Make the terminal at least 80")) << screen();
    run({"resize-window", "-t", "brimlet", "-x", "100", "-y", "30"});
    EXPECT_TRUE(shows("[2 Apps]")) << screen();

    ASSERT_TRUE(waitUntil(
        [&] {
            const auto read = GlanceStore{folder}.read(SuiteApp::brimlet);
            return read && read->ok() && read->value().state == GlanceState::running;
        },
        30))
        << log();
    keys({"q"});
    ASSERT_TRUE(waitUntil([&] { return sessionEnded(); }, 30)) << screen();
    const auto last = GlanceStore{folder}.read(SuiteApp::brimlet);
    ASSERT_TRUE(last && last->ok());
    EXPECT_EQ(last->value().state, GlanceState::stopped);
    EXPECT_TRUE(lockIsFree(folder.lockURL()));
}

// The report a run writes, without what differs between two runs of the same choices: the date,
// the free space around it, and the home folder it ran in.
std::string comparable(const std::string& markdown, const std::string& home) {
    std::string out;
    std::size_t start = 0;
    while (start < markdown.size()) {
        const std::size_t end = std::min(markdown.find('\n', start), markdown.size());
        std::string line = markdown.substr(start, end - start);
        start = end + 1;
        if (line.starts_with("- Date: ") || line.starts_with("- Free space ") || line.starts_with("- Freed now: "))
            continue;
        for (std::size_t at = line.find(home); at != std::string::npos; at = line.find(home, at + 6))
            line.replace(at, home.size(), "$HOME");
        out += line + "\n";
    }
    return out;
}

void plantHome(const std::string& home) {
    kestrow::testing::writeFile(home + "/.npm/_cacache/index-v5/aa/1", std::string(70'000, 'n'));
    kestrow::testing::writeFile(home + "/.cache/pip/wheels/x.whl", std::string(150'000, 'p'));
    kestrow::testing::writeFile(home + "/work/site/node_modules/left-pad/index.js", std::string(40'000, 'j'));
    kestrow::testing::writeFile(home + "/work/site/package.json", "{}");
    kestrow::testing::writeFile(home + "/Documents/notes.txt", "mine");
}

TEST_F(TerminalEndToEnd, CleansExactlyTheChosenCacheAndTheApprovedPersonalItem) {
    plantHome(home);
    start();
    keys({"3"});
    ASSERT_TRUE(shows(" m  Measure")) << screen();
    keys({"m"});
    // The caches come chosen, in the catalog's order (npm, then pip); the personal item does not.
    ASSERT_TRUE(shows("[ ] node_modules in site")) << screen() << log();
    const std::string measured = screen();
    EXPECT_NE(measured.find("[x] npm cache"), std::string::npos) << measured;
    EXPECT_NE(measured.find("[x] pip cache"), std::string::npos) << measured;
    EXPECT_NE(measured.find(home + "/.npm/_cacache"), std::string::npos) << measured;

    keys({"Down", "Space"});
    ASSERT_TRUE(shows("[ ] pip cache")) << screen();
    keys({"Down", "Space"});
    ASSERT_TRUE(shows("node_modules in site")) << screen();
    ASSERT_TRUE(shows("never deleted")) << screen();  // the approval names where it goes
    EXPECT_NE(screen().find(home + "/work/site/node_modules"), std::string::npos) << screen();
    keys({"Enter"});
    ASSERT_TRUE(shows("[x] node_modules in site")) << screen();

    keys({"Enter"});
    ASSERT_TRUE(shows("Clean 2 items?")) << screen();
    // The question lists exactly the chosen items and where each goes.
    const std::string asked = screen();
    EXPECT_NE(asked.find("\u2022 npm cache ("), std::string::npos) << asked;
    EXPECT_NE(asked.find("\u2022 node_modules in site ("), std::string::npos) << asked;
    EXPECT_EQ(asked.find("pip cache"), std::string::npos) << asked;
    std::size_t destinations = 0;
    for (std::size_t at = asked.find("): moved to the Trash"); at != std::string::npos;
         at = asked.find("): moved to the Trash", at + 1))
        ++destinations;
    EXPECT_EQ(destinations, 2u) << asked;
    keys({"Enter"});
    ASSERT_TRUE(shows("Removed (2)")) << screen() << log();
    EXPECT_FALSE(fs::exists(home + "/.npm/_cacache"));
    EXPECT_TRUE(fs::exists(home + "/.cache/pip/wheels/x.whl"));
    EXPECT_FALSE(fs::exists(home + "/work/site/node_modules"));
    EXPECT_TRUE(fs::exists(home + "/.local/share/Trash/files/node_modules/left-pad/index.js"));
    EXPECT_TRUE(fs::exists(home + "/work/site/package.json"));
    EXPECT_TRUE(fs::exists(home + "/Documents/notes.txt"));

    keys({"e"});
    EXPECT_TRUE(shows("Report written")) << screen();
    std::vector<std::string> reports;
    ASSERT_TRUE(waitUntil(
        [&] {
            reports.clear();
            for (const auto& entry : fs::directory_iterator(temp.path()))
                if (entry.path().filename().string().starts_with("Cleanup Report ")) reports.push_back(entry.path());
            std::sort(reports.begin(), reports.end());
            return reports.size() == 2;  // JSON and Markdown, in the folder it was started from
        },
        30));
    ASSERT_TRUE(reports[1].ends_with(".md")) << reports[1];
    ASSERT_TRUE(reports[0].ends_with(".json")) << reports[0];
    keys({"q"});
    ASSERT_TRUE(waitUntil([&] { return sessionEnded(); }, 30)) << screen();

    // The same choices through the command line, in a home planted the same way: the report it
    // prints is the one the terminal exported, but for the date and the free space.
    const std::string twin = temp / "twin";
    plantHome(twin);
    ChildProcess cli(
        {KESTROW_BRIMLET_PATH, "--clean", "--item", "npm-cache", "--approve", "node-modules:work/site/node_modules"},
        {{"HOME", twin},
         {"XDG_CONFIG_HOME", temp / "twin-config"},
         {"XDG_DATA_HOME", twin + "/.local/share"},
         {"XDG_CACHE_HOME", twin + "/.cache"}},
        temp / "cli.out", temp / "cli.err");
    ASSERT_EQ(cli.waitExit(120), 0) << cli.err();
    const std::string exported = kestrow::testing::readWholeFile(reports[1]);
    EXPECT_EQ(comparable(exported, home), comparable(cli.out(), twin)) << exported << "\n" << cli.out();
    EXPECT_NE(exported.find("## Deleted (2)"), std::string::npos) << exported;
}

TEST_F(TerminalEndToEnd, TheSuitePageShowsASecondMembersRow) {
    start();
    keys({"5"});
    ASSERT_TRUE(shows("[5 Suite]")) << screen() << log();
    EXPECT_TRUE(shows("The suite is not active")) << screen();
    // A second member joins the same suite folder: its record, fresh for a minute, makes the suite
    // active and brings its row to the page.
    const auto now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    using kestrow::suite::GlanceLevel;
    using kestrow::suite::GlanceRecord;
    ASSERT_TRUE(GlanceStore{folder}
                    .write(GlanceRecord(SuiteApp::corvane, false, GlanceState::running, now, GlanceRecord::ttlMax,
                                        GlanceLevel::notice, {{"queue", "Queue", 42.0, "jobs", GlanceLevel::notice}}))
                    .ok());
    ASSERT_TRUE(shows(SuiteApp(SuiteApp::corvane).shortName())) << screen() << log();
    const std::string members = screen();
    EXPECT_NE(members.find("Queue"), std::string::npos) << members;
    EXPECT_NE(members.find("jobs"), std::string::npos) << members;
    EXPECT_EQ(members.find("The suite is not active"), std::string::npos) << members;
    keys({"q"});
    ASSERT_TRUE(waitUntil([&] { return sessionEnded(); }, 30)) << screen();
}

}  // namespace
}  // namespace brimlet
