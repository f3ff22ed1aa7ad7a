// The terminal front end without a terminal: cell widths, fitting and wrapping, the ASCII forms,
// charts and bars, what each key does where, the apps table's order, which processes may be asked
// to quit, and whole frames of every page laid out over real stores on the manual loop.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "app/screens/SettingsChoices.hpp"
#include "app/tui/TerminalFrontEnd.hpp"
#include "app/tui/TerminalQuit.hpp"
#include "app/tui/TerminalText.hpp"
#include "core/monitoring/ProcessReader.hpp"
#include "suite/ui/SuiteScreens.hpp"
#include "tests/app/AppTestSupport.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

using namespace std::chrono_literals;

using namespace tui;
using kestrow::InMemoryUserDefaults;
using testing::StoreRig;

bool isASCII(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

TEST(TerminalText, CellWidths) {
    const struct {
        std::string text;
        std::size_t width;
    } cases[] = {
        {"", 0},
        {"Memory", 6},
        {"9.87 GB \u00B7 12%", 13},  // a middle dot is one cell
        {"\u2581\u2588", 2},         // blocks
        {"\u6F22\u5B57", 4},         // CJK: two cells each
        {"e\u0301", 1},              // a combining accent adds none
        {"\xff\xfe", 2},             // bytes that are not UTF-8: one cell each
        {"\xe2\x82", 2},             // a cut sequence
        {"\xed\xa0\x80", 3},         // a surrogate's encoding is not UTF-8
        {"\xc0\xaf", 2},             // an overlong slash
        {"\U0001F600", 2},           // emoji
    };
    for (const auto& c : cases) EXPECT_EQ(displayWidth(c.text), c.width) << c.text;
}

TEST(TerminalText, FittingCutsWithAnEllipsisAndPads) {
    const struct {
        std::string text;
        std::size_t width;
        std::string fitted;
        std::string right;
    } cases[] = {
        {"abc", 5, "abc  ", "  abc"},
        {"abcdef", 4, "abc\u2026", "abc\u2026"},
        {"abcd", 4, "abcd", "abcd"},
        {"\u6F22\u5B57x", 4, "\u6F22\u2026 ", "\u6F22\u2026 "},  // the wide character that would straddle goes
        {"anything", 0, "", ""},
        {"\xff"
         "a",
         3,
         "\uFFFD"
         "a ",
         " \uFFFD"
         "a"},  // invalid bytes drawn as the replacement
    };
    for (const auto& c : cases) {
        EXPECT_EQ(fit(c.text, c.width), c.fitted) << c.text;
        EXPECT_EQ(fitRight(c.text, c.width), c.right) << c.text;
        EXPECT_EQ(displayWidth(fit(c.text, c.width)), c.width) << c.text;
    }
}

TEST(TerminalText, WrappingBreaksAtSpacesAndCutsLongWords) {
    const struct {
        std::string text;
        std::size_t width;
        std::vector<std::string> lines;
    } cases[] = {
        {"one two three", 7, {"one two", "three"}},
        {"one two three", 100, {"one two three"}},
        {"abcdefghij", 4, {"abcd", "efgh", "ij"}},
        {"first\n\nthird", 20, {"first", "", "third"}},
        {"caf\u00E9 au lait", 5, {"caf\u00E9", "au", "lait"}},
        {"x", 0, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(wrap(c.text, c.width), c.lines) << c.text;
        for (const std::string& line : wrap(c.text, c.width)) EXPECT_LE(displayWidth(line), c.width);
    }
}

TEST(TerminalText, ASCIIFormsOfTheSymbolsInUse) {
    const struct {
        std::string text;
        std::string plain;
    } cases[] = {
        {"Taking the first sample\u2026", "Taking the first sample..."},
        {"Live every 2 seconds \u00B7 last 5 minutes", "Live every 2 seconds * last 5 minutes"},
        {"1 MB/s \u2191 2 MB/s \u2193", "1 MB/s ^ 2 MB/s v"},
        {"Personal \u2014 needs your approval", "Personal - needs your approval"},
        {"\u201Cquoted\u201D it\u2019s", "\"quoted\" it's"},
        {"80\u00D724", "80x24"},
        {"\u2581\u2588\u2591", "##."},
        {"\u6F22", "??"},  // keeps the cells it took
        {"\xff", "?"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ascii(c.text), c.plain) << c.text;
        EXPECT_TRUE(isASCII(ascii(c.text)));
    }
}

TEST(TerminalText, ChartsScaleTheNewestValuesToEightHeights) {
    using V = std::vector<std::optional<double>>;
    const struct {
        V values;
        double ceiling;
        std::size_t width;
        std::string unicode;
        std::string plain;
    } cases[] = {
        {V{0.0, 50.0, 100.0}, 100, 3, " \u2584\u2588", " =@"},
        {V{0.0, 50.0, 100.0}, 100, 5, "   \u2584\u2588", "   =@"},  // short history: right-aligned
        {V{10.0, 20.0, 30.0, 40.0}, 40, 2, "\u2586\u2588", "*@"},   // the oldest are dropped
        {V{std::nullopt, 1.0}, 100, 2, " \u2581", " ."},            // unknown blank; tiny but not none
        {V{500.0, -5.0}, 100, 2, "\u2588 ", "@ "},                  // clamped to the chart
        {V{1.0}, 0, 1, "\u2588", "@"},                              // a zero ceiling cannot divide
        {V{}, 100, 3, "   ", "   "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(chart(c.values, c.ceiling, c.width, true), c.unicode);
        EXPECT_EQ(chart(c.values, c.ceiling, c.width, false), c.plain);
        EXPECT_EQ(displayWidth(chart(c.values, c.ceiling, c.width, true)), c.width);
    }
}

TEST(TerminalText, BarsFillInEighths) {
    const struct {
        double fraction;
        std::size_t width;
        std::string unicode;
        std::string plain;
    } cases[] = {
        {0.0, 4, "\u2591\u2591\u2591\u2591", "...."},
        {1.0, 4, "\u2588\u2588\u2588\u2588", "####"},
        {0.5, 4, "\u2588\u2588\u2591\u2591", "##.."},
        {0.5 + 1.0 / 32, 4, "\u2588\u2588\u258F\u2591", "##.."},
        {2.0, 2, "\u2588\u2588", "##"},
        {-1.0, 2, "\u2591\u2591", ".."},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(bar(c.fraction, c.width, true), c.unicode) << c.fraction;
        EXPECT_EQ(bar(c.fraction, c.width, false), c.plain) << c.fraction;
    }
}

TEST(TerminalText, CharacterSetAndColorChoices) {
    for (const auto& [codeset, utf8] : std::map<std::string, bool>{{"UTF-8", true},
                                                                   {"utf8", true},
                                                                   {"UTF8", true},
                                                                   {"ANSI_X3.4-1968", false},
                                                                   {"ISO-8859-1", false},
                                                                   {"", false}})
        EXPECT_EQ(isUTF8Codeset(codeset), utf8) << codeset;
    EXPECT_TRUE(wantsColor(nullptr, true));
    EXPECT_TRUE(wantsColor("", true));  // set but empty does not count
    EXPECT_FALSE(wantsColor("1", true));
    EXPECT_FALSE(wantsColor("0", true));  // any value at all
    EXPECT_FALSE(wantsColor(nullptr, false));
}

TEST(TerminalKeys, EachKeyMeansWhatItsContextSays) {
    const KeyContext overview{Page::overview}, apps{Page::apps}, cleanup{Page::cleanup};
    const KeyContext dialog{Page::apps, true}, help{Page::cleanup, false, true}, filter{Page::apps, false, false, true};
    const struct {
        int key;
        KeyContext context;
        Command command;
    } cases[] = {
        {'q', overview, Command::quit},
        {'q', dialog, Command::dismiss},
        {'q', help, Command::dismiss},
        {'q', filter, Command::none},
        {'?', apps, Command::help},
        {'1', cleanup, Command::showOverview},
        {'2', overview, Command::showApps},
        {'3', apps, Command::showCleanup},
        {Key::tab, apps, Command::nextPage},
        {Key::backTab, apps, Command::previousPage},
        {Key::up, apps, Command::up},
        {'j', cleanup, Command::down},
        {'s', apps, Command::sortNext},
        {'s', overview, Command::none},
        {'/', apps, Command::filter},
        {'x', apps, Command::askQuitApp},
        {'x', cleanup, Command::none},
        {Key::enter, apps, Command::askQuitApp},
        {Key::enter, cleanup, Command::clean},
        {Key::enter, dialog, Command::confirm},
        {'y', dialog, Command::confirm},
        {Key::escape, dialog, Command::dismiss},
        {'m', cleanup, Command::measure},
        {'m', apps, Command::none},
        {' ', cleanup, Command::toggleItem},
        {'c', cleanup, Command::cancel},
        {Key::escape, cleanup, Command::cancel},
        {'e', cleanup, Command::exportReport},
        {'d', cleanup, Command::toggleMode},
        {'r', cleanup, Command::startOver},
        {Key::enter, filter, Command::confirm},
        {Key::escape, filter, Command::dismiss},
        {'1', dialog, Command::none},
        {'4', apps, Command::showSettings},
        {' ', KeyContext{Page::settings}, Command::toggleItem},
        {Key::enter, KeyContext{Page::settings}, Command::toggleItem},
        {'m', KeyContext{Page::settings}, Command::none},
        {'5', cleanup, Command::showSuite},
        {'5', dialog, Command::none},
        {' ', KeyContext{Page::suite}, Command::none},
    };
    for (const auto& c : cases)
        EXPECT_EQ(commandFor(c.key, c.context), c.command)
            << "key " << c.key << " on page " << static_cast<int>(c.context.page);
}

TEST(TerminalKeys, TheFooterAndHelpNameEveryPagesKeys) {
    for (const Page page : {Page::overview, Page::apps, Page::cleanup, Page::settings, Page::suite}) {
        const auto footer = footerHints(KeyContext{page});
        EXPECT_EQ(footer.back(), (KeyHint{"q", "quit"}));
        EXPECT_NE(std::find(footer.begin(), footer.end(), KeyHint{"?", "help"}), footer.end());
        EXPECT_GE(helpHints(page).size(), footer.size() - 1);
    }
}

AppGroup group(std::string id, std::string name, std::uint64_t footprint, std::optional<double> cpu,
               std::optional<double> disk, std::vector<std::int32_t> pids = {}) {
    AppGroup g;
    g.id = std::move(id);
    g.name = std::move(name);
    g.footprint = footprint;
    g.cpuPercent = cpu;
    g.diskReadPerSecond = disk;
    g.diskWritePerSecond = disk ? std::optional<double>(0) : std::nullopt;
    g.pids = std::move(pids);
    return g;
}

TEST(TerminalApps, SortedAndFiltered) {
    const std::vector<AppGroup> apps{group("a", "Alpha", 300, 1, 10), group("b", "beta", 200, 50, std::nullopt),
                                     group("c", "Gamma", 100, std::nullopt, 500), group("d", "alphabet", 100, 5, 10)};
    const auto ids = [](const std::vector<AppGroup>& listed) {
        std::string out;
        for (const AppGroup& g : listed) out += g.id;
        return out;
    };
    const struct {
        AppSort sort;
        std::string filter;
        std::string order;
    } cases[] = {
        {AppSort::memory, "", "abcd"},                                  // ties by id
        {AppSort::cpu, "", "bdac"},                                     // unknown last
        {AppSort::disk, "", "cadb"},      {AppSort::name, "", "adbc"},  // case ignored
        {AppSort::memory, "ALPHA", "ad"}, {AppSort::memory, "zzz", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(ids(sortedApps(apps, c.sort, c.filter)), c.order) << c.filter;
    AppSort sort = AppSort::memory;
    for (int i = 0; i < 4; ++i) sort = nextSort(sort);
    EXPECT_EQ(sort, AppSort::memory);
}

TEST(TerminalQuitRule, OnlyTheUsersOwnProcessesOutsideThisTerminal) {
    constexpr std::uint32_t me = 1000, someoneElse = 1001;
    const std::map<std::int32_t, ProcessIdentity> table{
        {1, {0, 0, 0, "init"}},          {2, {0, 0, 0, "kthreadd"}},   {50, {2, 0, 0, "kworker"}},
        {100, {1, me, 0, "sshd-user"}},  {110, {100, me, 0, "tmux"}},  {120, {110, me, 0, "bash"}},
        {130, {120, me, 0, "brimlet"}},  {200, {1, me, 0, "firefox"}}, {201, {200, me, 0, "firefox"}},
        {300, {1, someoneElse, 0, "x"}}, {400, {1, 0, 0, "daemon"}},   {500, {400, me, 0, "helper"}},
    };
    const TerminalQuit::ProcessLookup lookup = [&](std::int32_t pid) -> std::optional<ProcessIdentity> {
        const auto it = table.find(pid);
        return it == table.end() ? std::nullopt : std::optional(it->second);
    };
    const std::vector<std::int32_t> chain = TerminalQuit::protectedChain(130, lookup);
    EXPECT_EQ(chain, (std::vector<std::int32_t>{130, 120, 110, 100}));
    const std::string own(TerminalQuit::ownTerminalHelp), system(TerminalQuit::systemHelp);
    const struct {
        std::vector<std::int32_t> pids;
        TerminalQuit::Plan plan;
    } cases[] = {
        {{200, 201}, {{200, 201}, ""}},
        {{130}, {{}, own}},       // this program
        {{110, 999}, {{}, own}},  // the terminal multiplexer it runs in
        {{200, 120}, {{}, own}},  // a group holding its shell is refused whole
        {{1}, {{}, system}},
        {{50}, {{}, system}},       // a kernel thread
        {{300}, {{}, system}},      // another user's
        {{400, 500}, {{500}, ""}},  // root's daemon stays, the user's helper may be asked
        {{999}, {{}, system}},      // gone
        {{}, {{}, system}},
    };
    for (const auto& c : cases) {
        const AppGroup g = group("g", "G", 1, 0, 0, c.pids);
        EXPECT_EQ(TerminalQuit::plan(g, me, chain, lookup), c.plan);
    }
    // Run as root, root's processes are the system's, but for those of the user's own session.
    const TerminalQuit::SessionCheck session = [](std::int32_t pid) { return pid == 400; };
    EXPECT_FALSE(TerminalQuit::plan(group("g", "G", 1, 0, 0, {400}), 0, chain, lookup).allowed());
    EXPECT_EQ(TerminalQuit::plan(group("g", "G", 1, 0, 0, {400, 1, 50}), 0, chain, lookup, session).pids,
              std::vector<std::int32_t>{400});
    EXPECT_FALSE(TerminalQuit::plan(group("g", "G", 1, 0, 0, {400}), 0, {400}, lookup, session).allowed());
}

TEST(TerminalQuitRule, AParentLoopInTheProcessTableEnds) {
    const TerminalQuit::ProcessLookup loop = [](std::int32_t pid) -> std::optional<ProcessIdentity> {
        return ProcessIdentity{pid == 10 ? 11 : 10, 1000, 0, "x"};
    };
    EXPECT_EQ(TerminalQuit::protectedChain(10, loop), (std::vector<std::int32_t>{10, 11}));
    const TerminalQuit::ProcessLookup deep = [](std::int32_t pid) -> std::optional<ProcessIdentity> {
        return ProcessIdentity{pid + 1, 1000, 0, "x"};
    };
    EXPECT_LE(TerminalQuit::protectedChain(10, deep).size(), 65u);
}

// A real child of this test is asked to quit through the live process table and the real signal.
TEST(TerminalQuitRule, AskingARealChildSendsItSIGTERM) {
    kestrow::testing::TempFolder folder;
    kestrow::testing::ChildProcess child({"/bin/sleep", "30"}, {}, folder / "out", folder / "err");
    ASSERT_TRUE(child.started());
    ProcessReading& live = liveProcessReading();
    const TerminalQuit::ProcessLookup lookup = [&](std::int32_t pid) { return live.identity(pid); };
    const std::vector<std::int32_t> chain = TerminalQuit::protectedChain(::getpid(), lookup);
    std::int32_t childPid = 0;
    ASSERT_TRUE(kestrow::testing::waitUntil(
        [&] {
            for (const std::int32_t pid : live.allPIDs()) {
                const auto info = live.identity(pid);
                if (info && info->ppid == ::getpid() && info->name.find("sleep") != std::string::npos) childPid = pid;
            }
            return childPid != 0;
        },
        30));
    // This test's own group is refused; its child is offered.
    const TerminalQuit::SessionCheck session = [own = ::getsid(0)](std::int32_t pid) { return ::getsid(pid) == own; };
    EXPECT_FALSE(
        TerminalQuit::plan(group("t", "tests", 1, 0, 0, {::getpid(), childPid}), ::getuid(), chain, lookup, session)
            .allowed());
    std::vector<std::int32_t> signalled;
    const std::size_t asked = TerminalQuit::quit(group("s", "sleep", 1, 0, 0, {childPid}), ::getuid(), chain, lookup,
                                                 session, [&](std::int32_t pid) {
                                                     signalled.push_back(pid);
                                                     return ::kill(pid, SIGTERM) == 0;
                                                 });
    EXPECT_EQ(asked, 1u);
    EXPECT_EQ(signalled, std::vector<std::int32_t>{childPid});
    EXPECT_EQ(child.waitExit(30), -1);  // ended by the signal, not by itself
}

constexpr std::uint64_t GiB = 1ULL << 30;

struct FrontEndRig : ::testing::Test {
    StoreRig rig;
    InMemoryUserDefaults defaults;
    kestrow::testing::TempFolder home;
    std::unique_ptr<MonitorStore> monitor;
    std::unique_ptr<CleanupStore> cleanup;
    std::vector<std::int32_t> terminated;

    FrontEndRig() {
        rig.processes.add(40, 3 * GiB / 2, "Browser", 1);
        rig.processes.add(41, GiB / 2, "Browser", 40);
        testing::idleSettings(defaults);
    }
    void sample(int count = 1) {
        int ticks = 0;
        if (!monitor) monitor = rig.makeStore(defaults);
        monitor->onTick = [&] { ++ticks; };
        for (int i = 0; i < count; ++i) {
            if (i > 0) rig.loop.advance(10s);
            ASSERT_TRUE(rig.settle([&] { return ticks == i + 1; }));
        }
        monitor->onTick = nullptr;
    }
    SuiteView suite;

    TerminalFrontEnd frontEnd(bool unicode = true) {
        if (!monitor) monitor = rig.makeStore(defaults);
        if (!cleanup) cleanup = std::make_unique<CleanupStore>(rig.loop, home.path());
        FrontEndSeams seams;
        seams.lookup = [this](std::int32_t pid) { return rig.processes.identity(pid); };
        seams.uid = 501;
        seams.protectedPids = {2};  // the scripted "editor" stands for the terminal this runs in
        seams.terminate = [this](std::int32_t pid) {
            terminated.push_back(pid);
            return true;
        };
        seams.exportFolder = home.path();
        seams.unicode = unicode;
        seams.suite = [this] { return suite; };
        return TerminalFrontEnd(*monitor, *cleanup, std::move(seams));
    }
    static std::string joined(const Frame& frame) {
        std::string all;
        for (const Line& line : frame.lines) all += line.text + "\n";
        return all;
    }
};

TEST_F(FrontEndRig, EveryFrameFillsTheTerminalExactly) {
    sample();
    for (const bool unicode : {true, false}) {
        TerminalFrontEnd screen = frontEnd(unicode);
        for (const int key : std::initializer_list<int>{'1', '2', '3', '4', '5', '?'}) {
            screen.press(Key::escape);
            screen.press(key);
            for (const auto& [rows, columns] : std::vector<std::pair<std::size_t, std::size_t>>{
                     {24, 80}, {30, 100}, {60, 200}, {23, 80}, {24, 79}, {5, 20}}) {
                const Frame frame = screen.frame(rows, columns);
                ASSERT_EQ(frame.lines.size(), rows);
                for (const Line& line : frame.lines) {
                    EXPECT_EQ(displayWidth(line.text), columns) << line.text;
                    if (!unicode) {
                        EXPECT_TRUE(isASCII(line.text)) << line.text;
                    }
                }
                const bool tooSmall = rows < 24 || columns < 80;
                std::string flat;
                for (const Line& line : frame.lines) flat += line.text;
                std::erase(flat, ' ');
                EXPECT_EQ(flat.find("Maketheterminalatleast") != std::string::npos, tooSmall) << flat;
            }
        }
    }
}

// Spelled in ASCII, a cut caption ends in one "." as it ended in one ellipsis: the grades after it
// stay where they were.
TEST_F(FrontEndRig, TheASCIIOverviewKeepsItsColumns) {
    sample();
    const auto grades = [](const Frame& frame) {
        std::vector<std::size_t> at;
        for (const Line& line : frame.lines)
            if (line.text.size() > 6 && line.text.ends_with("Great")) at.push_back(displayWidth(line.text));
        return at;
    };
    const std::vector<std::size_t> unicode = grades(frontEnd(true).frame(24, 80));
    EXPECT_GE(unicode.size(), 2u);
    EXPECT_EQ(grades(frontEnd(false).frame(24, 80)), unicode);
}

TEST_F(FrontEndRig, TheOverviewShowsThePopoversFiguresAndTheCharts) {
    TerminalFrontEnd screen = frontEnd();
    EXPECT_NE(joined(screen.frame(24, 80)).find("Taking the first sample"), std::string::npos);
    sample(3);
    const std::string shown = joined(screen.frame(40, 100));
    const PopoverScreen popover = MonitorScreens::popover(*monitor);
    for (const ReadingRow& row : popover.readings) {
        EXPECT_NE(shown.find(row.title), std::string::npos) << row.title;
        EXPECT_NE(shown.find(row.value), std::string::npos) << row.value;
        if (row.grade) {
            EXPECT_NE(shown.find(std::string(row.grade->rawValue())), std::string::npos);
        }
    }
    for (const AppListRow& app : popover.apps) EXPECT_NE(shown.find(app.name), std::string::npos);
    EXPECT_NE(shown.find("Last 5 minutes"), std::string::npos);
    EXPECT_NE(shown.find("\u2588"), std::string::npos);  // the memory chart, half full
    EXPECT_NE(shown.find("Live every 2 seconds"), std::string::npos);
}

TEST_F(FrontEndRig, QuittingAnAppAsksThenSignalsOnlyItsProcesses) {
    sample();
    TerminalFrontEnd screen = frontEnd();
    screen.press('2');
    // Largest first: the browser's two processes lead.
    std::string shown = joined(screen.frame(30, 100));
    EXPECT_NE(shown.find("Browser"), std::string::npos);
    screen.press('x');
    ASSERT_TRUE(screen.hasDialog());
    shown = joined(screen.frame(30, 100));
    EXPECT_NE(shown.find("Quit Browser?"), std::string::npos);
    EXPECT_NE(shown.find("SIGTERM"), std::string::npos);
    screen.press(Key::escape);
    EXPECT_FALSE(screen.hasDialog());
    EXPECT_TRUE(terminated.empty());
    screen.press('x');
    screen.press(Key::enter);
    EXPECT_EQ(terminated, (std::vector<std::int32_t>{40, 41}));
    EXPECT_NE(screen.status().find("was asked to quit"), std::string::npos);

    // The terminal's own group is never offered: the status line says why and nothing is sent.
    terminated.clear();
    screen.press('/');
    for (const char c : std::string("editor")) screen.press(c);
    screen.press(Key::enter);
    screen.press('x');
    EXPECT_FALSE(screen.hasDialog());
    EXPECT_EQ(screen.status(), "editor: " + std::string(TerminalQuit::ownTerminalHelp));
    EXPECT_TRUE(terminated.empty());
}

TEST_F(FrontEndRig, SettingsSwitchAlertsAndStepThroughTheThresholds) {
    TerminalFrontEnd screen = frontEnd();
    screen.press(Key::backTab);  // from the first page back to the last, and one more
    screen.press(Key::backTab);
    ASSERT_EQ(screen.page(), Page::settings);
    const AlertSettings before = monitor->alertSettings();
    screen.press(' ');
    EXPECT_EQ(monitor->alertSettings().memoryPressureEnabled, !before.memoryPressureEnabled);
    screen.press(Key::down);
    screen.press(Key::down);
    screen.press(' ');
    const auto lowDisk = SettingsChoices::lowDiskThresholds(before.lowDiskThreshold);
    const auto at = std::find_if(lowDisk.begin(), lowDisk.end(),
                                 [&](const auto& choice) { return choice.value == before.lowDiskThreshold; });
    ASSERT_NE(at, lowDisk.end());
    const auto next = std::next(at) == lowDisk.end() ? lowDisk.front() : *std::next(at);
    EXPECT_EQ(monitor->alertSettings().lowDiskThreshold, next.value);
    EXPECT_NE(joined(screen.frame(24, 80)).find("Low disk alert threshold: " + next.title), std::string::npos);
    // Past the last row the selection stays on it; there the heavy-app threshold steps round.
    for (int i = 0; i < 10; ++i) screen.press(Key::down);
    for (std::size_t i = 0; i < SettingsChoices::heavyAppThresholds(before.heavyAppThreshold).size(); ++i)
        screen.press(' ');
    EXPECT_EQ(monitor->alertSettings().heavyAppThreshold, before.heavyAppThreshold);
    EXPECT_EQ(monitor->alertSettings().lowDiskEnabled, before.lowDiskEnabled);
}

// The suite page lists what the suite's own presenter says of each member, and only while the
// suite is active.
TEST_F(FrontEndRig, TheSuitePageListsTheMembersWhileTheSuiteIsActive) {
    using namespace kestrow::suite;
    const GlanceRecord brimlet(
        SuiteApp::brimlet, true, GlanceState::running, 1000, 10, GlanceLevel::notice,
        {{"mem", "Memory", 71.5, "%", GlanceLevel::notice}, {"cpu", "CPU", 12.0, "%", GlanceLevel::ok}});
    const GlanceRecord corvane(SuiteApp::corvane, false, GlanceState::running, 1000, 10, GlanceLevel::alert,
                               {{"queue", "Queue", 1234.0, "jobs", GlanceLevel::alert}});
    suite.rows = {SuiteRow{brimlet}, SuiteRow{corvane}, SuiteRow{SuiteApp(SuiteApp::dismel)}};
    TerminalFrontEnd screen = frontEnd();
    screen.press('5');
    ASSERT_EQ(screen.page(), Page::suite);
    std::string shown = joined(screen.frame(30, 100));
    EXPECT_NE(shown.find("The suite is not active"), std::string::npos) << shown;
    EXPECT_EQ(shown.find(SuiteScreens::member(suite.rows[1], NumberLocale{}).line.name), std::string::npos) << shown;

    suite.active = true;
    shown = joined(screen.frame(30, 100));
    EXPECT_EQ(shown.find("The suite is not active"), std::string::npos) << shown;
    const SuitePopoverScreen popover = SuiteScreens::popover(suite.rows, false, false, NumberLocale{});
    ASSERT_EQ(popover.members.size(), 3u);
    for (const SuiteMemberRow& member : popover.members) {
        EXPECT_NE(shown.find(member.line.name), std::string::npos) << shown;
        EXPECT_NE(shown.find(member.line.values), std::string::npos) << member.line.values << "\n" << shown;
        for (const SuiteValueLine& value : member.values) {
            EXPECT_NE(shown.find(value.label), std::string::npos) << shown;
            EXPECT_NE(shown.find(value.value), std::string::npos) << shown;
        }
    }
    // Each member's line carries its level: the alert stands out, a member not running is dimmed.
    const Frame frame = screen.frame(30, 100);
    const auto toneOf = [&](const std::string& name) {
        for (std::size_t i = 3; i < frame.lines.size(); ++i)  // below the header, which names this program
            if (frame.lines[i].text.find(name) != std::string::npos) return frame.lines[i].tone;
        return screens::Tone::plain;
    };
    EXPECT_EQ(toneOf(popover.members[0].line.name), screens::Tone::warning);
    EXPECT_EQ(toneOf(popover.members[1].line.name), screens::Tone::failure);
    EXPECT_EQ(toneOf(popover.members[2].line.name), screens::Tone::secondary);
    TerminalFrontEnd ascii = frontEnd(false);
    ascii.press('5');
    for (const Line& line : ascii.frame(30, 100).lines) EXPECT_TRUE(isASCII(line.text)) << line.text;
}

TEST_F(FrontEndRig, QClosesTheHelpFirstThenLeaves) {
    TerminalFrontEnd screen = frontEnd();
    EXPECT_TRUE(screen.press('?'));
    EXPECT_TRUE(screen.press('q'));  // closes the help
    EXPECT_FALSE(screen.press('q'));
}

}  // namespace
}  // namespace brimlet
