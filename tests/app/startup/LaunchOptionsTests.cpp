// The launch table: what each platform accepts, the exact refusals, and a help text that lists only
// what does something here.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "app/startup/LaunchOptions.hpp"

namespace brimlet {
namespace {

using Platform = LaunchPlatform;

TEST(LaunchOptions, EveryArgumentIsCheckedAgainstThePlatformsTable) {
    const std::string longName(5000, 'n');
    struct Case {
        Platform platform;
        std::vector<std::string> arguments;  // after the program path
        std::optional<std::string> refusal;  // the whole standard error; none: accepted
    };
    const Case cases[] = {
        {Platform::linux, {}, std::nullopt},
        {Platform::linux, {"--suite-folder", "/tmp/s"}, std::nullopt},
        {Platform::mac,
         {"--suite-folder", "/tmp/s", "--floating", "--open", "cleanup", "--appearance", "dark"},
         std::nullopt},
        // Options that do nothing on headless Linux are not taken there.
        {Platform::linux, {"--floating"}, "KestrowBrimlet: unknown argument --floating (see --help)\n"},
        {Platform::linux, {"--appearance", "dark"}, "KestrowBrimlet: unknown argument --appearance (see --help)\n"},
        // An option name is never taken for a value.
        {Platform::mac,
         {"--appearance", "--floating"},
         "KestrowBrimlet: --appearance needs a value: dark|light (see --help)\n"},
        {Platform::mac, {"--appearance"}, "KestrowBrimlet: --appearance needs a value: dark|light (see --help)\n"},
        {Platform::mac,
         {"--open", "--suite-folder", "/tmp/s"},
         "KestrowBrimlet: --open needs a value: dashboard|cleanup|settings (see --help)\n"},
        {Platform::mac,
         {"--open", ""},
         "KestrowBrimlet: --open needs a value: dashboard|cleanup|settings (see --help)\n"},
        {Platform::mac,
         {"--appearance", "blue"},
         "KestrowBrimlet: --appearance must be dark or light, not blue (see --help)\n"},
        {Platform::mac,
         {"--open", "trash"},
         "KestrowBrimlet: --open must be dashboard, cleanup or settings, not trash (see --help)\n"},
        // No argument can forge a line of its own.
        {Platform::linux,
         {"--suite-folder", "/tmp/s\nKestrowBrimlet[launch] forged"},
         "KestrowBrimlet: --suite-folder must not contain control characters: /tmp/s\\x0aKestrowBrimlet[launch] "
         "forged (see --help)\n"},
        {Platform::linux, {"--x\r\x1b[2J"}, "KestrowBrimlet: unknown argument --x\\x0d\\x1b[2J (see --help)\n"},
        {Platform::linux,
         {"--suite-folder", "/tmp/" + longName},
         "KestrowBrimlet: --suite-folder names a folder no file system can hold: /tmp/" + longName + " (see --help)\n"},
        {Platform::linux, {"--suite-folder", "/tmp/" + std::string(255, 'n')}, std::nullopt},
        // The system's own pairs reach a Mac app and are passed over there, not on Linux.
        {Platform::mac, {"-NSDocumentRevisionsDebugMode", "YES", "-psn_0_1234"}, std::nullopt},
        {Platform::linux,
         {"-NSDocumentRevisionsDebugMode", "YES"},
         "KestrowBrimlet: unknown argument -NSDocumentRevisionsDebugMode (see --help)\n"},
        {Platform::mac, {"--no-such-flag"}, "KestrowBrimlet: unknown argument --no-such-flag (see --help)\n"},
        // An option that only shapes another is refused without it.
        {Platform::linux, {"--clean", "--item", "npm-cache", "--report", "r.md"}, std::nullopt},
        {Platform::linux, {"--json"}, "KestrowBrimlet: --json works only with --measure (see --help)\n"},
        {Platform::mac, {"--item", "npm-cache"}, "KestrowBrimlet: --item works only with --clean (see --help)\n"},
        {Platform::linux,
         {"--report", "--clean"},
         "KestrowBrimlet: --report needs a value: FILE.md|FILE.json (see --help)\n"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> arguments{"KestrowBrimlet"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const auto exit = LaunchOptions::validate(arguments, c.platform);
        const std::string label = (c.platform == Platform::linux ? "linux:" : "mac:") +
                                  (c.arguments.empty() ? std::string() : LaunchOptions::printable(c.arguments[0]));
        if (!c.refusal) {
            EXPECT_FALSE(exit) << label << " " << (exit ? exit->standardError : "");
            continue;
        }
        ASSERT_TRUE(exit) << label;
        EXPECT_EQ(exit->standardError, *c.refusal) << label;
        EXPECT_EQ(exit->status, 2) << label;
    }
}

TEST(LaunchOptions, HelpListsExactlyTheOptionsThatWorkOnThePlatform) {
    for (const Platform platform : {Platform::linux, Platform::mac}) {
        const std::string help = LaunchOptions::help(platform, "What it does.\n");
        EXPECT_EQ(help.rfind("usage: KestrowBrimlet", 0), 0u);
        EXPECT_NE(help.find("What it does.\n"), std::string::npos);
        for (const LaunchOption& option : LaunchOptions::table()) {
            const bool listed = help.find("\n  " + std::string(option.name)) != std::string::npos;
            EXPECT_EQ(listed, option.availableOn(platform)) << option.name;
        }
    }
    EXPECT_EQ(LaunchOptions::help(Platform::linux, "").find("--floating"), std::string::npos);
    EXPECT_NE(LaunchOptions::help(Platform::mac, "").find("--appearance dark|light"), std::string::npos);
}

}  // namespace
}  // namespace brimlet
