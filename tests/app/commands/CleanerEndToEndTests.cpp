// The real program's "--measure" and "--clean" against a temporary home with real cache folders and
// a temporary Trash ($HOME and $XDG_DATA_HOME point into a fresh folder). Every test first makes sure
// the program took that home, so that nothing here can reach the real one.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "base/Json.hpp"
#include "core/cleanup/CleanupReport.hpp"
#include "core/common/ByteFormat.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TempFolder.hpp"

extern char** environ;

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

std::string readFile(const std::string& path) { return kestrow::testing::readWholeFile(path); }

struct Finished {
    int status = -1;  // -1: killed by a signal or still running at the deadline
    std::string out, err;
};

// Runs the program to its end with the given environment added, output in files; the child is
// always reaped, and killed first if it outlives the (generous) deadline.
Finished runProgram(std::vector<std::string> arguments, const std::map<std::string, std::string>& environment,
                    const std::string& outputFolder) {
    arguments.insert(arguments.begin(), KESTROW_BRIMLET_PATH);
    kestrow::testing::ChildProcess child(std::move(arguments), environment, outputFolder + "/run.out",
                                         outputFolder + "/run.err");
    Finished finished;
    if (!child.started()) return finished;
    finished.status = child.waitExit(120);
    finished.out = child.out();
    finished.err = child.err();
    return finished;
}

// Every entry below a folder, links not followed: its kind, and for files their bytes.
std::map<std::string, std::string> tree(const std::string& root) {
    std::map<std::string, std::string> entries;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(root, error); !error && it != fs::recursive_directory_iterator();
         it.increment(error)) {
        const std::string relative = it->path().string().substr(root.size() + 1);
        if (it->is_symlink()) entries[relative] = "link to " + fs::read_symlink(it->path()).string();
        else if (it->is_directory()) entries[relative] = "folder";
        else entries[relative] = "file " + readFile(it->path().string());
    }
    return entries;
}

// The entries of `before` that lie outside `removed` (a path relative to the same root).
std::map<std::string, std::string> without(std::map<std::string, std::string> before, const std::string& removed) {
    std::erase_if(before,
                  [&](const auto& entry) { return entry.first == removed || entry.first.starts_with(removed + "/"); });
    return before;
}

std::uint64_t allocated(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return 0;
    return static_cast<std::uint64_t>(st.st_blocks) * 512;
}

kestrow::JsonValue parsed(const std::string& text) {
    auto result = kestrow::parseJson(text);
    if (result.ok()) return *result;
    ADD_FAILURE() << "not JSON: " << text;
    return {};
}

struct CleanerEndToEnd : ::testing::Test {
    TempFolder temp;
    std::string home = temp / "home";
    std::string trash = temp / "data/Trash";
    std::map<std::string, std::string> environment{{"HOME", home},
                                                   {"XDG_DATA_HOME", temp / "data"},
                                                   {"XDG_CONFIG_HOME", temp / "config"},
                                                   {"XDG_CACHE_HOME", home + "/.cache"}};
    // The planted items: id → (folder relative to the home, allocated bytes of its files).
    std::map<std::string, std::pair<std::string, std::uint64_t>> planted;
    const std::string project = "node-modules:work/site/node_modules";

    void plant(const std::string& id, const std::string& folder,
               const std::vector<std::pair<std::string, std::size_t>>& files) {
        std::uint64_t bytes = 0;
        for (const auto& [name, size] : files) {
            const std::string path = home + "/" + folder + "/" + name;
            // Varied bytes, so no file system can store them in less than their length.
            std::string content(size, '\0');
            for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>((i * 131 + size) % 251);
            kestrow::testing::writeFile(path, content);
            bytes += allocated(path);
        }
        planted[id] = {folder, bytes};
    }

    void SetUp() override {
        plant("npm-cache", ".npm/_cacache", {{"index-v5/aa/1", 70'000}, {"content-v2/sha512/ab/cd", 300'000}});
        plant("pip-cache", ".cache/pip", {{"wheels/x.whl", 150'000}});
        plant("uv-cache", ".cache/uv", {{"archive-v0/a/lib.py", 20'000}});
        plant(project, "work/site/node_modules", {{"left-pad/index.js", 40'000}, {".package-lock.json", 3'000}});
        // Data that is no cache of the catalog, kept caches, and the project around node_modules.
        kestrow::testing::writeFile(home + "/work/site/package.json", "{\"name\":\"site\"}");
        kestrow::testing::writeFile(home + "/.npm/_logs/debug.log", "npm log");
        kestrow::testing::writeFile(home + "/.cache/puppeteer/chrome/chrome", std::string(10'000, 'c'));
        kestrow::testing::writeFile(home + "/Documents/notes.txt", "mine");
        // The program must have taken the temporary home: anything else ends the test here.
        const Finished measured = runProgram({"--measure", "--json"}, environment, temp.path());
        ASSERT_EQ(measured.status, 0) << measured.err;
        const kestrow::JsonValue json = parsed(measured.out);
        ASSERT_TRUE(json.find("home") && json.find("home")->asString()) << measured.out;
        ASSERT_EQ(*json.find("home")->asString(), home);
    }

    Finished run(const std::vector<std::string>& arguments) { return runProgram(arguments, environment, temp.path()); }

    std::vector<std::string> trashed() const {
        std::vector<std::string> names;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(trash + "/files", error))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(CleanerEndToEnd, MeasuringShowsThePlantedSizesAndChangesNothing) {
    const auto before = tree(home);
    const Finished json = run({"--measure", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    const kestrow::JsonValue document = parsed(json.out);
    std::map<std::string, std::uint64_t> sizes;
    std::map<std::string, std::string> kinds;
    for (const kestrow::JsonValue& item : *document.find("items")->asArray()) {
        const std::string id = *item.find("id")->asString();
        sizes[id] = *item.find("size")->asNumber()->asUnsigned();
        kinds[id] = *item.find("kind")->asString();
        EXPECT_EQ(*item.find("url")->asString(), home + "/" + planted[id].first) << id;
        EXPECT_NE(item.find("cleaning"), nullptr) << id;
    }
    std::map<std::string, std::uint64_t> expected;
    for (const auto& [id, where] : planted) expected[id] = where.second;
    EXPECT_EQ(sizes, expected);
    EXPECT_EQ(kinds, (std::map<std::string, std::string>{{"npm-cache", "regenerable"},
                                                         {"pip-cache", "regenerable"},
                                                         {"uv-cache", "regenerable"},
                                                         {project, "personal"}}));

    const Finished text = run({"--measure"});
    ASSERT_EQ(text.status, 0) << text.err;
    for (const auto& [id, where] : planted) {
        const auto line = text.out.find("\n" + id + " ");
        ASSERT_NE(line, std::string::npos) << id << "\n" << text.out;
        const std::string row = text.out.substr(line, text.out.find('\n', line + 1) - line);
        EXPECT_NE(row.find(" " + ByteFormat::string(where.second) + " "), std::string::npos) << row;
    }
    EXPECT_EQ(tree(home), before);
    EXPECT_FALSE(fs::exists(trash));
}

TEST_F(CleanerEndToEnd, ADryRunChangesNothing) {
    const auto before = tree(home);
    const Finished dry = run({"--clean", "--dry-run", "--permanent"});
    EXPECT_EQ(dry.status, 0) << dry.err;
    const Finished approved = run({"--clean", "--dry-run", "--item", "pip-cache", "--approve", project});
    EXPECT_EQ(approved.status, 0) << approved.err;
    for (const std::string id : {"npm-cache", "pip-cache", "uv-cache"})
        EXPECT_NE(dry.out.find("(" + id + ")"), std::string::npos) << id << "\n" << dry.out;
    EXPECT_NE(approved.out.find("(" + project + ")"), std::string::npos) << approved.out;
    EXPECT_EQ(approved.out.find("(npm-cache)"), std::string::npos) << approved.out;
    EXPECT_EQ(tree(home), before);
    EXPECT_FALSE(fs::exists(trash));
}

TEST_F(CleanerEndToEnd, CleaningRemovesExactlyTheChosenCachesAndTheReportSaysSo) {
    const auto before = tree(home);
    const std::string reportPath = temp / "report.md";
    const Finished clean = run({"--clean", "--item", "pip-cache", "--item", "npm-cache", "--report", reportPath});
    ASSERT_EQ(clean.status, 0) << clean.err << clean.out;
    EXPECT_EQ(tree(home), without(without(before, ".npm/_cacache"), ".cache/pip"));
    EXPECT_EQ(trashed(), (std::vector<std::string>{"_cacache", "pip"}));
    // The cache arrived in the Trash whole.
    std::map<std::string, std::string> cacheInside;
    const std::string cacheFolder = ".npm/_cacache/";
    for (const auto& [path, what] : before)
        if (path.starts_with(cacheFolder)) cacheInside[path.substr(cacheFolder.size())] = what;
    EXPECT_EQ(tree(trash + "/files/_cacache"), cacheInside);
    // The report on stdout is the one written to the file, and it names what went, in catalog order.
    EXPECT_EQ(readFile(reportPath), clean.out);
    const auto npm = clean.out.find("- npm cache \u2014 " + ByteFormat::string(planted["npm-cache"].second) +
                                    " \u2014 Move to Trash  \n  `" + home + "/.npm/_cacache`");
    const auto pip = clean.out.find("- pip cache \u2014 " + ByteFormat::string(planted["pip-cache"].second) +
                                    " \u2014 Move to Trash  \n  `" + home + "/.cache/pip`");
    EXPECT_NE(npm, std::string::npos) << clean.out;
    EXPECT_NE(pip, std::string::npos) << clean.out;
    EXPECT_LT(npm, pip);
    EXPECT_NE(clean.out.find("## Deleted (2)"), std::string::npos);
    EXPECT_NE(clean.out.find("## Skipped (0)"), std::string::npos);
    // Plain progress lines, one per item, where there is no terminal.
    EXPECT_NE(clean.err.find("Cleaning 1 of 2: npm cache\nCleaning 2 of 2: pip cache\n"), std::string::npos)
        << clean.err;
    EXPECT_EQ(clean.err.find('\r'), std::string::npos);
}

TEST_F(CleanerEndToEnd, EveryCacheGoesPermanentlyAndPersonalDataStays) {
    const auto before = tree(home);
    const Finished clean = run({"--clean", "--permanent"});
    ASSERT_EQ(clean.status, 0) << clean.err << clean.out;
    EXPECT_EQ(tree(home), without(without(without(before, ".npm/_cacache"), ".cache/pip"), ".cache/uv"));
    EXPECT_TRUE(trashed().empty());
    EXPECT_NE(clean.out.find("- Mode: Delete permanently"), std::string::npos);
    EXPECT_NE(clean.out.find("## Deleted (3)"), std::string::npos);
}

TEST_F(CleanerEndToEnd, AnApprovedPersonalItemLandsInTheTrashAndTheJSONReportMatches) {
    const auto before = tree(home);
    const std::string reportPath = temp / "report.json";
    const Finished clean = run({"--clean", "--item", "uv-cache", "--approve", project, "--report", reportPath});
    ASSERT_EQ(clean.status, 0) << clean.err << clean.out;
    EXPECT_EQ(tree(home), without(without(before, "work/site/node_modules"), ".cache/uv"));
    EXPECT_EQ(trashed(), (std::vector<std::string>{"node_modules", "uv"}));
    EXPECT_TRUE(fs::exists(trash + "/files/node_modules/left-pad/index.js"));
    const std::string info = readFile(trash + "/info/node_modules.trashinfo");
    EXPECT_NE(info.find("Path=" + home + "/work/site/node_modules\n"), std::string::npos) << info;

    CleanupReport report;
    ASSERT_TRUE(fromJson(parsed(readFile(reportPath)), report)) << readFile(reportPath);
    EXPECT_EQ(report.markdown(), clean.out);
    ASSERT_EQ(report.deleted.size(), 2u);
    EXPECT_EQ(report.deleted[0].title, "uv cache");
    EXPECT_EQ(report.deleted[1].path, home + "/work/site/node_modules");
    EXPECT_EQ(report.deleted[1].bytes, planted[project].second);
    EXPECT_EQ(report.deleted[1].mode, DeleteMode::trash);
    EXPECT_TRUE(report.skipped.empty());
}

TEST_F(CleanerEndToEnd, ASkippedItemMakesTheStatusOneAndTheReportSaysWhy) {
    // The npm cache is a link to a folder elsewhere in the home: measured, but never followed.
    fs::remove_all(home + "/.npm/_cacache");
    kestrow::testing::writeFile(home + "/elsewhere/keep.bin", std::string(5'000, 'k'));
    fs::create_directory_symlink(home + "/elsewhere", home + "/.npm/_cacache");
    const auto before = tree(home);
    const Finished clean = run({"--clean"});
    EXPECT_EQ(clean.status, 1) << clean.err << clean.out;
    EXPECT_EQ(tree(home), without(without(before, ".cache/pip"), ".cache/uv"));
    EXPECT_NE(clean.out.find("## Skipped (1)\n\n- npm cache \u2014 Is a symbolic link; links are never followed for "
                             "deletion  \n  `" +
                             home + "/.npm/_cacache`"),
              std::string::npos)
        << clean.out;
    EXPECT_NE(clean.out.find("## Deleted (2)"), std::string::npos);
}

TEST_F(CleanerEndToEnd, UsageErrorsExitTwoAndTouchNothing) {
    const auto before = tree(home);
    struct Case {
        std::vector<std::string> arguments;
        std::string message;
    };
    const Case cases[] = {
        {{"--clean", "--approve", project, "--permanent"},
         "KestrowBrimlet: --permanent cannot be used with --approve: personal items only ever go to the Trash"},
        {{"--clean", "--item", "no-such-cache"},
         "KestrowBrimlet: --item names a cache, and there is none called no-such-cache"},
        // Found only after measuring: still nothing goes, not even the caches.
        {{"--clean", "--approve", "node-modules:gone/node_modules"},
         "KestrowBrimlet: --approve node-modules:gone/node_modules: no personal item with that id was found"},
        {{"--json"}, "KestrowBrimlet: --json works only with --measure"},
        {{"--measure", "--clean"}, "KestrowBrimlet: --measure and --clean cannot be used together"},
        {{"--clean", "--report", temp / "no-folder/report.md"},
         "KestrowBrimlet: --report: there is no folder " + temp / "no-folder"},
        {{"--clean", "--report", temp / "report.txt"}, "KestrowBrimlet: --report must name a .md or .json file"},
    };
    for (const Case& c : cases) {
        const Finished finished = run(c.arguments);
        EXPECT_EQ(finished.status, 2) << c.message;
        EXPECT_NE(finished.err.find(c.message), std::string::npos) << c.message << "\n" << finished.err;
        EXPECT_EQ(finished.out, "") << c.message;
    }
    EXPECT_EQ(tree(home), before);
    EXPECT_FALSE(fs::exists(trash));
}

}  // namespace
}  // namespace brimlet
