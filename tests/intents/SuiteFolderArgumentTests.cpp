#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/intents/SuiteFolderArgument.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

using kestrow::testing::TempFolder;

TEST(SuiteFolderArgument, ResolvesOnlyTemporaryTestFolders) {
    using Kind = SuiteFolderArgument::Problem::Kind;
    TempFolder temp;
    ::mkdir((temp / "Suite").c_str(), 0700);
    ::symlink("/etc", (temp / "escape").c_str());
    const std::string real = temp / "Home/Jürgen/Library/Application Support/Kestrow/Suite";
    struct Case {
        std::vector<std::string> args;
        std::variant<std::optional<std::string>, Kind> expected;
    };
    const Case cases[] = {
        {{"/app"}, std::optional<std::string>()},
        {{"--suite-folder", "/x"}, std::optional<std::string>()},  // the program path is never the switch
        {{"/app", "--suite-folder"}, Kind::missingValue},
        {{"/app", "--suite-folder", ""}, Kind::missingValue},
        {{"/app", "--suite-folder", "rel/dir"}, Kind::notAbsolute},
        {{"/app", "--suite-folder", temp.path()}, Kind::outsideTemporaryFolder},
        {{"/app", "--suite-folder", "/var/other"}, Kind::outsideTemporaryFolder},
        {{"/app", "--suite-folder", temp / "escape/x"}, Kind::outsideTemporaryFolder},
        {{"/app", "--suite-folder", temp / "Suite/../../outside"}, Kind::outsideTemporaryFolder},
        {{"/app", "--suite-folder", temp / "Suite"}, std::optional<std::string>(temp / "Suite")},
        {{"/app", "--suite-folder", temp / "new/./deeper/"}, std::optional<std::string>(temp / "new/deeper")},
        {{"/app", "--suite-folder", temp / "home/jürgen/library/application support/kestrow/SUITE/x"},
         Kind::realSuiteFolder},
        // The default file system on macOS ignores case beyond ASCII too.
        {{"/app", "--suite-folder", temp / "Home/JÜRGEN/Library/Application Support/Kestrow/Suite"},
         Kind::realSuiteFolder},
        {{"/app", "--suite-folder", temp / "Home/Jürgen/Library/Application Support/Kestrow/Suite2"},
         std::optional<std::string>(temp / "Home/Jürgen/Library/Application Support/Kestrow/Suite2")},
        {{"/app", "--suite-folder", temp / "Home/Jurgen/Library/Application Support/Kestrow/Suite"},
         std::optional<std::string>(temp / "Home/Jurgen/Library/Application Support/Kestrow/Suite")},
    };
    for (const Case& c : cases) {
        const auto result = SuiteFolderArgument::resolve(c.args, {"/", temp.path()}, real);
        const std::string what = c.args.size() > 2 ? c.args[2] : "(none)";
        if (auto* kind = std::get_if<Kind>(&c.expected)) {
            ASSERT_TRUE(std::holds_alternative<SuiteFolderArgument::Problem>(result)) << what;
            EXPECT_EQ(std::get<SuiteFolderArgument::Problem>(result).kind, *kind) << what;
        } else {
            ASSERT_TRUE(std::holds_alternative<std::optional<std::string>>(result)) << what;
            EXPECT_EQ(std::get<std::optional<std::string>>(result), std::get<std::optional<std::string>>(c.expected));
        }
    }
    EXPECT_EQ((SuiteFolderArgument::Problem{Kind::notAbsolute, "a/b"}).description(),
              "--suite-folder needs an absolute path: a/b");
    EXPECT_EQ((SuiteFolderArgument::Problem{Kind::missingValue, ""}).description(), "--suite-folder needs a path");
    EXPECT_EQ((SuiteFolderArgument::Problem{Kind::outsideTemporaryFolder, "/x"}).description(),
              "--suite-folder must be inside the temporary folder: /x");
    EXPECT_EQ((SuiteFolderArgument::Problem{Kind::realSuiteFolder, "/x"}).description(),
              "--suite-folder must not be the real suite folder: /x");
}

}  // namespace
}  // namespace brimlet
