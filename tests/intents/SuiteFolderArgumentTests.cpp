#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/intents/SuiteFolderArgument.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

using kestrow::testing::TempFolder;

TEST(SuiteFolderArgument, ResolvesOnlyTemporaryTestFolders) {
    using Resolved = kestrow::Result<std::optional<std::string>>;
    TempFolder temp;
    ::mkdir((temp / "Suite").c_str(), 0700);
    ::symlink("/etc", (temp / "escape").c_str());
    const std::string real = temp / "Home/Jürgen/Library/Application Support/Kestrow/Suite";
    // A malformed request is an invalid argument, a folder a test run may not use is refused; the
    // texts are what the user reads, with the path as given.
    const auto invalid = [](const std::string& text) -> Resolved {
        return kestrow::Status::failure(kestrow::Cause::invalidArgument, "--suite-folder " + text);
    };
    const auto refused = [](const std::string& text) -> Resolved {
        return kestrow::Status::failure(kestrow::Cause::permissionDenied, "--suite-folder " + text);
    };
    const std::string outside = "must be inside the temporary folder: ";
    const std::string theReal = "must not be the real suite folder: ";
    struct Case {
        std::vector<std::string> args;
        Resolved expected;
    };
    const Case cases[] = {
        {{"/app"}, std::optional<std::string>()},
        {{"--suite-folder", "/x"}, std::optional<std::string>()},  // the program path is never the switch
        {{"/app", "--suite-folder"}, invalid("needs a path")},
        {{"/app", "--suite-folder", ""}, invalid("needs a path")},
        {{"/app", "--suite-folder", "rel/dir"}, invalid("needs an absolute path: rel/dir")},
        {{"/app", "--suite-folder", temp.path()}, refused(outside + temp.path())},
        {{"/app", "--suite-folder", "/var/other"}, refused(outside + "/var/other")},
        {{"/app", "--suite-folder", temp / "escape/x"}, refused(outside + (temp / "escape/x"))},
        {{"/app", "--suite-folder", temp / "Suite/../../outside"}, refused(outside + (temp / "Suite/../../outside"))},
        {{"/app", "--suite-folder", temp / "Suite"}, std::optional<std::string>(temp / "Suite")},
        {{"/app", "--suite-folder", temp / "new/./deeper/"}, std::optional<std::string>(temp / "new/deeper")},
        {{"/app", "--suite-folder", temp / "home/jürgen/library/application support/kestrow/SUITE/x"},
         refused(theReal + (temp / "home/jürgen/library/application support/kestrow/SUITE/x"))},
        // The default file system on macOS ignores case beyond ASCII too.
        {{"/app", "--suite-folder", temp / "Home/JÜRGEN/Library/Application Support/Kestrow/Suite"},
         refused(theReal + (temp / "Home/JÜRGEN/Library/Application Support/Kestrow/Suite"))},
        {{"/app", "--suite-folder", temp / "Home/Jürgen/Library/Application Support/Kestrow/Suite2"},
         std::optional<std::string>(temp / "Home/Jürgen/Library/Application Support/Kestrow/Suite2")},
        {{"/app", "--suite-folder", temp / "Home/Jurgen/Library/Application Support/Kestrow/Suite"},
         std::optional<std::string>(temp / "Home/Jurgen/Library/Application Support/Kestrow/Suite")},
    };
    for (const Case& c : cases) {
        const Resolved result = SuiteFolderArgument::resolve(c.args, {"/", temp.path()}, real);
        const std::string what = c.args.size() > 2 ? c.args[2] : "(none)";
        EXPECT_EQ(result.status(), c.expected.status()) << what;
        if (c.expected.ok() && result.ok()) {
            EXPECT_EQ(*result, *c.expected) << what;
        }
    }
    EXPECT_EQ(SuiteFolderArgument::outsideTemporaryFolder("/x"), refused(outside + "/x").status());
}

}  // namespace
}  // namespace brimlet
