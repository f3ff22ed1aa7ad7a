#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "app/desktop/AppQuitter.hpp"
#include "app/startup/LaunchDefaults.hpp"
#include "app/startup/LaunchRole.hpp"
#include "app/startup/SuiteLaunch.hpp"
#include "base/Files.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

using kestrow::suite::SuiteFolder;

AppGroup bundleGroup(std::optional<std::string> bundlePath, std::uint64_t footprint = 0) {
    AppGroup g;
    g.id = bundlePath.value_or("cmd:node");
    g.name = bundlePath ? "Safari" : "node";
    g.bundlePath = std::move(bundlePath);
    g.footprint = footprint;
    return g;
}

TEST(AppQuitter, FirstStandardisedMatchAndNeverItself) {
    const std::vector<RunningApplication> running{
        {10, "/Applications/Other.app"},
        {11, std::nullopt},  // a process without a bundle URL never matches
        {12, "/Applications/Safari.app/"},
        {13, "/Applications/Safari.app"},  // a second copy of the same bundle
    };
    struct Case {
        const char* what;
        std::optional<std::string> bundlePath;
        std::int32_t self;
        std::optional<std::int32_t> target;
    };
    const Case cases[] = {
        {"trailing slash on the running side", "/Applications/Safari.app", 1, 12},
        {"dot component", "/Applications/./Safari.app", 1, 12},
        {"dot-dot component", "/Applications/Safari.app/Contents/..", 1, 12},
        {"first match is this program", "/Applications/Safari.app", 12, std::nullopt},
        {"the second copy is this program", "/Applications/Safari.app", 13, 12},
        {"different case", "/applications/safari.app", 1, std::nullopt},
        {"not running", "/Applications/Missing.app", 1, std::nullopt},
        {"no bundle", std::nullopt, 1, std::nullopt},
    };
    for (const Case& c : cases) {
        const AppGroup group = bundleGroup(c.bundlePath);
        const auto target = AppQuitter::quitTarget(group, running, c.self);
        EXPECT_EQ(target ? std::optional(target->processIdentifier) : std::nullopt, c.target) << c.what;
        std::vector<std::int32_t> asked;
        const bool requested = AppQuitter::quit(
            group, running, c.self, [&](const RunningApplication& a) { asked.push_back(a.processIdentifier); });
        EXPECT_EQ(requested, c.target.has_value()) << c.what;
        EXPECT_EQ(asked, c.target ? std::vector<std::int32_t>{*c.target} : std::vector<std::int32_t>{}) << c.what;
    }
    // The match itself does not care whose process it is.
    EXPECT_EQ(AppQuitter::runningApplication(bundleGroup("/Applications/Safari.app"), running),
              (RunningApplication{12, "/Applications/Safari.app/"}));
}

// Safari runs from a Cryptex volume while its bundle URL names /Applications: a link stands in for
// the volume here. The real paths agree; an application elsewhere still does not match.
TEST(AppQuitter, AnApplicationRunningFromAnotherPathMatchesWhenTheRealPathsAgree) {
    kestrow::testing::TempFolder home;
    std::filesystem::create_directories(home / "Cryptex/Safari.app/Contents");
    std::filesystem::create_directories(home / "Applications");
    std::filesystem::create_directories(home / "Elsewhere/Safari.app");
    std::filesystem::create_directory_symlink(home / "Cryptex/Safari.app", home / "Applications/Safari.app");
    const std::vector<RunningApplication> running{
        {20, home / "Elsewhere/Safari.app"},
        {21, home / "Cryptex/Safari.app"},
    };
    struct Case {
        const char* what;
        std::string bundlePath;
        std::optional<std::int32_t> target;
    };
    const Case cases[] = {
        {"group under the link, application at the real path", home / "Applications/Safari.app", 21},
        {"group at the real path", home / "Cryptex/./Safari.app", 21},
        {"real paths differ", home / "Other/Safari.app", std::nullopt},
    };
    for (const Case& c : cases) {
        const auto target = AppQuitter::quitTarget(bundleGroup(c.bundlePath), running, 1);
        EXPECT_EQ(target ? std::optional(target->processIdentifier) : std::nullopt, c.target) << c.what;
    }
    // And the other way round: the running side names the link.
    const std::vector<RunningApplication> linked{{30, home / "Applications/Safari.app/"}};
    EXPECT_EQ(AppQuitter::quitTarget(bundleGroup(home / "Cryptex/Safari.app"), linked, 1)->processIdentifier, 30);
}

TEST(AppQuitter, RowTexts) {
    EXPECT_FALSE(AppQuitter::canQuit(bundleGroup(std::nullopt)));
    EXPECT_TRUE(AppQuitter::canQuit(bundleGroup("/Applications/Safari.app")));
    EXPECT_EQ(AppQuitter::unavailableHelp, "Quit it from the app or terminal that started it.");
    EXPECT_EQ(AppQuitter::confirmation(bundleGroup("/Applications/Safari.app", 1'342'177'280)),
              "Safari is using 1.25 GB. It will be asked to quit normally, like choosing Quit from its menu, and may "
              "ask you to save your work.");
    EXPECT_EQ(AppQuitter::confirmation("Xcode", "9.1 GB"),
              "Xcode is using 9.1 GB. It will be asked to quit normally, like choosing Quit from its menu, and may ask "
              "you to save your work.");
}

TEST(LaunchRole, OnlyABackgroundOnlyLaunchTakesTheMenuBarRole) {
    using Policy = LaunchRole::Policy;
    struct Case {
        Policy current;
        std::optional<Policy> switchTo;
    };
    const Case cases[] = {
        {Policy::prohibited, Policy::accessory},  // started by the system for an intent
        {Policy::accessory, std::nullopt},        // the normal menu-bar launch
        {Policy::regular, std::nullopt},          // never demoted from the Dock
    };
    for (const Case& c : cases) EXPECT_EQ(LaunchRole::switchTo(c.current), c.switchTo) << static_cast<int>(c.current);
    // Before the run loop: the bare executable (no LSUIElement) starts as a menu-bar app too; a
    // background-only launch waits for the switch above.
    const Case beforeRun[] = {
        {Policy::regular, Policy::accessory},
        {Policy::accessory, std::nullopt},
        {Policy::prohibited, std::nullopt},
    };
    for (const Case& c : beforeRun)
        EXPECT_EQ(LaunchRole::beforeRun(c.current), c.switchTo) << static_cast<int>(c.current);
    EXPECT_EQ(LaunchRole::backgroundLaunchMessage,
              "Launched background-only (an intent): switched to the menu bar app role");
    EXPECT_EQ(LaunchRole::logCategory, "launch");
}

TEST(SuiteLaunch, FoldersFromTheArgumentWithExactFailureTexts) {
    kestrow::testing::TempFolder temporary;
    const std::string home = temporary / "home";
    ::unsetenv("XDG_DATA_HOME");
    const std::string realSuite = SuiteFolder::standard(home).url;
    std::filesystem::create_directories(realSuite);
    const std::string canonicalTemporary = kestrow::canonicalizePath(temporary.path()).value();
    EXPECT_EQ(SuiteLaunch::realSuiteFolder(home + "/"), realSuite);

    struct Case {
        std::vector<std::string> arguments;
        std::optional<std::string> folder;   // the one folder on success
        std::optional<std::string> failure;  // standard error on failure
    };
    const Case cases[] = {
        {{"KestrowBrimlet", "--suite-folder", temporary / "suite"}, canonicalTemporary + "/suite", std::nullopt},
        {{"KestrowBrimlet", "--floating", "--suite-folder", temporary / "a/../suite/"},
         canonicalTemporary + "/suite",
         std::nullopt},
        {{"KestrowBrimlet", "--suite-folder", "relative/suite"},
         std::nullopt,
         "KestrowBrimlet: --suite-folder needs an absolute path: relative/suite\n"},
        {{"KestrowBrimlet", "--suite-folder"}, std::nullopt, "KestrowBrimlet: --suite-folder needs a path\n"},
        {{"KestrowBrimlet", "--suite-folder", ""}, std::nullopt, "KestrowBrimlet: --suite-folder needs a path\n"},
        {{"KestrowBrimlet", "--suite-folder", temporary.path()},
         std::nullopt,
         ("KestrowBrimlet: --suite-folder must be inside the temporary folder: " + temporary.path() + "\n")},
        {{"KestrowBrimlet", "--suite-folder", "/var/lib/elsewhere"},
         std::nullopt,
         "KestrowBrimlet: --suite-folder must be inside the temporary folder: /var/lib/elsewhere\n"},
        {{"KestrowBrimlet", "--suite-folder", realSuite},
         std::nullopt,
         ("KestrowBrimlet: --suite-folder must not be the real suite folder: " + realSuite + "\n")},
        {{"KestrowBrimlet", "--suite-folder", realSuite + "/glances"},
         std::nullopt,
         ("KestrowBrimlet: --suite-folder must not be the real suite folder: " + realSuite + "/glances\n")},
    };
    for (const Case& c : cases) {
        const auto result = SuiteLaunch::folders(c.arguments, temporary.path(), home);
        const std::string label = c.arguments.back();
        if (c.failure) {
            ASSERT_TRUE(std::holds_alternative<SuiteLaunch::Exit>(result)) << label;
            EXPECT_EQ(std::get<SuiteLaunch::Exit>(result), (SuiteLaunch::Exit{*c.failure, 2})) << label;
        } else {
            ASSERT_TRUE(std::holds_alternative<std::vector<SuiteFolder>>(result)) << label;
            EXPECT_EQ(std::get<std::vector<SuiteFolder>>(result), std::vector<SuiteFolder>{SuiteFolder(*c.folder)})
                << label;
        }
    }
}

// A test suite folder in a shared temporary folder that someone else laid out first: "glances" a
// link into this user's files, or the folder itself a link. The launch refuses it with status 2 and
// nothing is written through the link; a folder of ours with a loose mode is used, made private.
TEST(SuiteLaunch, ASuiteFolderLaidOutAsALinkIsRefusedAndNothingIsWrittenThroughIt) {
    kestrow::testing::TempFolder temporary, victim;
    const std::string canonicalTemporary = kestrow::canonicalizePath(temporary.path()).value();
    const std::string suite = canonicalTemporary + "/suite";
    const std::string home = temporary / "home";

    ASSERT_EQ(::mkdir(suite.c_str(), 0777), 0);
    ASSERT_EQ(::symlink(victim.path().c_str(), (suite + "/glances").c_str()), 0);
    auto result = SuiteLaunch::folders({"KestrowBrimlet", "--suite-folder", suite}, temporary.path(), home);
    ASSERT_TRUE(std::holds_alternative<SuiteLaunch::Exit>(result));
    EXPECT_EQ(
        std::get<SuiteLaunch::Exit>(result),
        (SuiteLaunch::Exit{"KestrowBrimlet: --suite-folder must be inside the temporary folder: " + suite + "\n", 2}));
    EXPECT_TRUE(std::filesystem::is_empty(victim.path()));

    const std::string linked = canonicalTemporary + "/linked";
    ASSERT_EQ(::symlink(victim.path().c_str(), linked.c_str()), 0);
    // The argument is canonicalised first, which resolves the link to a folder outside.
    result = SuiteLaunch::folders({"KestrowBrimlet", "--suite-folder", linked}, temporary.path(), home);
    ASSERT_TRUE(std::holds_alternative<SuiteLaunch::Exit>(result));
    EXPECT_TRUE(std::filesystem::is_empty(victim.path()));

    ASSERT_EQ(::unlink((suite + "/glances").c_str()), 0);
    result = SuiteLaunch::folders({"KestrowBrimlet", "--suite-folder", suite}, temporary.path(), home);
    ASSERT_TRUE(std::holds_alternative<std::vector<SuiteFolder>>(result));
    struct stat st {};
    ASSERT_EQ(::stat(suite.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u) << "a folder of ours with a loose mode is made private";
}

TEST(SuiteLaunch, WithoutTheSwitchTheReachableFoldersAreUsed) {
    kestrow::testing::TempFolder temporary;
    const auto reachable = SuiteFolder::reachable(std::nullopt);
    // The program path is never read as the switch, so a bad "value" after it is not looked at.
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"KestrowBrimlet"}, {"--suite-folder", "relative"}, {"KestrowBrimlet", "--suite-folder=x"}, {}}) {
        const auto result = SuiteLaunch::folders(arguments, temporary.path(), temporary / "home");
        ASSERT_TRUE(std::holds_alternative<std::vector<SuiteFolder>>(result));
        EXPECT_EQ(std::get<std::vector<SuiteFolder>>(result), reachable);
        EXPECT_TRUE(SuiteLaunch::defaultsDomain(arguments, "com.kestrow.brimlet").isStandard());
    }
}

TEST(SuiteLaunch, ThisProcessesTemporaryFolderAdmitsATestFolder) {
    const char* saved = std::getenv("TMPDIR");
    const std::string original = saved ? saved : "";
    kestrow::testing::TempFolder temporary;

    ASSERT_EQ(::setenv("TMPDIR", temporary.path().c_str(), 1), 0);
    EXPECT_EQ(SuiteLaunch::temporaryDirectory(), temporary.path());
    const auto result = SuiteLaunch::folders({"KestrowBrimlet", "--suite-folder", temporary / "suite"});
    ASSERT_TRUE(std::holds_alternative<std::vector<SuiteFolder>>(result));
    EXPECT_EQ(std::get<std::vector<SuiteFolder>>(result).size(), 1u);

    ASSERT_EQ(::setenv("TMPDIR", (temporary / "missing").c_str(), 1), 0);
    EXPECT_EQ(SuiteLaunch::temporaryDirectory(), "/tmp");

    if (saved) ::setenv("TMPDIR", original.c_str(), 1);
    else ::unsetenv("TMPDIR");
}

TEST(SuiteLaunch, DefaultsDomainFollowsTheSwitch) {
    EXPECT_EQ(SuiteLaunch::bundleIdentifier(), "com.kestrow.brimlet");
    const std::vector<std::string> withSwitch{"KestrowBrimlet", "--suite-folder", "/tmp/x"};
    EXPECT_EQ(SuiteLaunch::defaultsDomain(withSwitch, SuiteLaunch::bundleIdentifier()),
              (SuiteLaunch::DefaultsDomain{"com.kestrow.brimlet.qa"}));

    std::vector<SuiteLaunch::DefaultsDomain> asked;
    auto refuseAll = [&](const SuiteLaunch::DefaultsDomain& d) { return asked.push_back(d), false; };
    const auto refused = SuiteLaunch::defaults(withSwitch, "com.kestrow.brimlet", refuseAll);
    ASSERT_TRUE(std::holds_alternative<SuiteLaunch::Exit>(refused));
    EXPECT_EQ(std::get<SuiteLaunch::Exit>(refused),
              (SuiteLaunch::Exit{"KestrowBrimlet: the QA defaults domain is not available\n", 2}));
    EXPECT_EQ(asked, std::vector<SuiteLaunch::DefaultsDomain>{{"com.kestrow.brimlet.qa"}});

    const auto accepted = SuiteLaunch::defaults(withSwitch, "com.kestrow.brimlet", [](const auto&) { return true; });
    EXPECT_EQ(std::get<SuiteLaunch::DefaultsDomain>(accepted), (SuiteLaunch::DefaultsDomain{"com.kestrow.brimlet.qa"}));

    // The standard domain is never in question.
    asked.clear();
    const auto standard = SuiteLaunch::defaults({"KestrowBrimlet"}, "com.kestrow.brimlet", refuseAll);
    EXPECT_TRUE(std::get<SuiteLaunch::DefaultsDomain>(standard).isStandard());
    EXPECT_TRUE(asked.empty());
}

// Nothing is written here: opening a file domain creates no file, so the user's own settings are
// never touched. A domain no file can be named after stands for a system that has no defaults.
TEST(LaunchDefaults, EveryFrontEndGetsItsSettingsOrTheExitThatEndsTheRun) {
    struct Case {
        const char* name;
        SuiteLaunch::DefaultsDomain suiteDomain;
        std::string applicationDomain;
        bool opens;
        bool suiteSharesTheMonitors;
    };
    const std::string own = SuiteLaunch::bundleIdentifier();
    const std::vector<Case> cases{
        {"the standard domain serves both", {}, own, true, true},
        {"a test domain keeps the suite apart", {own + ".qa"}, own, true, false},
        {"no defaults of its own still opens", {}, "", true, true},
        {"a test domain that cannot be opened ends the run", {"no/such domain"}, own, false, false},
        {"an empty test domain ends the run", {""}, own, false, false},
    };
    for (const Case& c : cases) {
        std::variant<LaunchDefaults, SuiteLaunch::Exit> opened =
            LaunchDefaults::open(c.suiteDomain, c.applicationDomain);
        if (!c.opens) {
            ASSERT_TRUE(std::holds_alternative<SuiteLaunch::Exit>(opened)) << c.name;
            EXPECT_EQ(std::get<SuiteLaunch::Exit>(opened), SuiteLaunch::qaDefaultsUnavailable()) << c.name;
            continue;
        }
        ASSERT_TRUE(std::holds_alternative<LaunchDefaults>(opened)) << c.name;
        const LaunchDefaults& defaults = std::get<LaunchDefaults>(opened);
        EXPECT_EQ(&defaults.suite() == &defaults.monitor(), c.suiteSharesTheMonitors) << c.name;
        if (defaults.inMemory()) {
            // For this run only, but kept for it.
            ASSERT_TRUE(defaults.monitor().set("launch.check", kestrow::JsonValue(true)).ok()) << c.name;
            EXPECT_EQ(defaults.suite().boolean("launch.check"), true) << c.name;
        }
    }
}

}  // namespace
}  // namespace brimlet
