// The cleaner's command line: which arguments go together, which items a clean takes, the listing,
// the progress lines and the exit status. The real program against a temporary home is in
// CleanerEndToEndTests.cpp.
#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "app/commands/CleanerCommand.hpp"
#include "base/Files.hpp"
#include "base/Json.hpp"
#include "core/common/ByteFormat.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

using Platform = LaunchPlatform;
using Command = CleanerRequest::Command;
using Format = CleanerRequest::ReportFormat;

CleanupItem cache(const std::string& id, std::optional<std::uint64_t> size = 1000) {
    CleanupItem item;
    item.id = id;
    item.title = id + " title";
    item.url = "/home/u/." + id;
    item.kind = CleanupKind::regenerable;
    item.size = size;
    return item;
}

CleanupItem simulators() {
    CleanupItem item = cache("simulators-unavailable", std::nullopt);
    item.action = CleanupAction::deleteUnavailableSimulators;
    item.note = "Size is known after the run";
    return item;
}

CleanupItem personal(const std::string& id, std::optional<std::string> blocked = std::nullopt) {
    CleanupItem item = cache(id, 5000);
    item.kind = CleanupKind::personal;
    item.blockedReason = std::move(blocked);
    return item;
}

TEST(CleanerCommand, ArgumentsAreCheckedAgainstEachOther) {
    const std::set<std::string> caches = {"npm-cache", "pip-cache", "simulators-unavailable"};
    auto request = [](Command command, auto&& change) {
        CleanerRequest r;
        r.command = command;
        change(r);
        return r;
    };
    auto none = [](CleanerRequest&) {};
    struct Case {
        Platform platform;
        std::vector<std::string> arguments;                  // after the program path
        std::variant<CleanerRequest, std::string> expected;  // the request, or the whole standard error
    };
    const Case cases[] = {
        {Platform::linux, {"--measure"}, request(Command::measure, none)},
        {Platform::mac, {"--measure", "--json"}, request(Command::measure, [](auto& r) { r.json = true; })},
        {Platform::linux, {"--clean"}, request(Command::clean, none)},
        // Repeated ids count once, in the order first given.
        {Platform::linux,
         {"--clean", "--item", "pip-cache", "--item", "npm-cache", "--item", "pip-cache", "--approve",
          "node-modules:a"},
         request(Command::clean,
                 [](auto& r) {
                     r.items = {"pip-cache", "npm-cache"};
                     r.approvals = {"node-modules:a"};
                 })},
        {Platform::linux,
         {"--permanent", "--clean", "--report", "out/Report.JSON"},
         request(Command::clean,
                 [](auto& r) {
                     r.permanent = true;
                     r.reportPath = "out/Report.JSON";
                     r.reportFormat = Format::json;
                 })},
        {Platform::linux,
         {"--clean", "--dry-run", "--item", "npm-cache"},
         request(Command::clean,
                 [](auto& r) {
                     r.dryRun = true;
                     r.items = {"npm-cache"};
                 })},
        // The system's own pairs still reach a Mac program started from a terminal.
        {Platform::mac, {"-NSDocumentRevisionsDebugMode", "YES", "--measure"}, request(Command::measure, none)},

        {Platform::linux,
         {"--measure", "--clean"},
         "KestrowBrimlet: --measure and --clean cannot be used together (see --help)\n"},
        {Platform::linux, {"--clean", "--json"}, "KestrowBrimlet: --json works only with --measure (see --help)\n"},
        {Platform::linux,
         {"--measure", "--item", "npm-cache"},
         "KestrowBrimlet: --item works only with --clean (see --help)\n"},
        {Platform::linux,
         {"--measure", "--dry-run"},
         "KestrowBrimlet: --dry-run works only with --clean (see --help)\n"},
        {Platform::linux, {"--clean", "--item"}, "KestrowBrimlet: --item needs a value: ID (see --help)\n"},
        {Platform::linux,
         {"--clean", "--item", "--dry-run"},
         "KestrowBrimlet: --item needs a value: ID (see --help)\n"},
        {Platform::linux,
         {"--clean", "--approve", "node-modules:a", "--permanent"},
         "KestrowBrimlet: --permanent cannot be used with --approve: personal items only ever go to the Trash "
         "(see --help)\n"},
        {Platform::linux,
         {"--clean", "--item", "node-modules:a"},
         "KestrowBrimlet: --item names a cache, and there is none called node-modules:a (--measure lists them; "
         "personal items are named with --approve) (see --help)\n"},
        {Platform::linux,
         {"--clean", "--item", "npm\x1b[2J"},
         "KestrowBrimlet: --item must not contain control characters: npm\\x1b[2J (see --help)\n"},
        {Platform::linux,
         {"--clean", "--approve", "npm-cache"},
         "KestrowBrimlet: --approve names a personal item, and npm-cache is a cache: use --item (see --help)\n"},
        {Platform::linux,
         {"--clean", "--report", "report.txt"},
         "KestrowBrimlet: --report must name a .md or .json file, not report.txt (see --help)\n"},
        {Platform::linux,
         {"--clean", "--report", "a.md", "--report", "b.md"},
         "KestrowBrimlet: --report may be given only once (see --help)\n"},
        {Platform::linux,
         {"--clean", "--dry-run", "--report", "a.md"},
         "KestrowBrimlet: --report cannot be used with --dry-run: a dry run has nothing to report (see --help)\n"},
        // The application's own options mean nothing here, and are not quietly ignored.
        {Platform::linux,
         {"--clean", "--suite-folder", "/tmp/s"},
         "KestrowBrimlet: --suite-folder cannot be used with --measure or --clean (see --help)\n"},
        {Platform::mac,
         {"--measure", "--floating"},
         "KestrowBrimlet: --floating cannot be used with --measure or --clean (see --help)\n"},
        {Platform::linux, {"--measure", "--floating"}, "KestrowBrimlet: unknown argument --floating (see --help)\n"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> arguments{"KestrowBrimlet"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        std::string label;
        for (const std::string& a : c.arguments) label += LaunchOptions::printable(a) + " ";
        const auto parsed = CleanerCommand::parse(arguments, c.platform, caches);
        if (const auto* expected = std::get_if<CleanerRequest>(&c.expected)) {
            const auto* request = std::get_if<CleanerRequest>(&parsed);
            ASSERT_TRUE(request) << label << std::get<SuiteLaunch::Exit>(parsed).standardError;
            EXPECT_EQ(*request, *expected) << label;
            EXPECT_TRUE(CleanerCommand::isRequested(arguments)) << label;
        } else {
            const auto* exit = std::get_if<SuiteLaunch::Exit>(&parsed);
            ASSERT_TRUE(exit) << label;
            EXPECT_EQ(exit->standardError, std::get<std::string>(c.expected)) << label;
            EXPECT_EQ(exit->status, 2) << label;
        }
    }
    EXPECT_FALSE(CleanerCommand::isRequested({"KestrowBrimlet", "--suite-folder", "/tmp/s"}));
    // The program's own path is not an argument.
    EXPECT_FALSE(CleanerCommand::isRequested({"--clean"}));
}

TEST(CleanerCommand, EveryCacheOfTheCatalogCanBeNamed) {
    const std::set<std::string> ids = CleanerCommand::cacheIds();
    for (const CleanupCatalog::Entry& entry : CleanupCatalog::entries()) EXPECT_TRUE(ids.count(entry.id)) << entry.id;
    EXPECT_TRUE(ids.count("simulators-unavailable"));
    EXPECT_EQ(ids.size(), CleanupCatalog::entries().size() + 1);
}

TEST(CleanerCommand, APlanTakesTheChosenItemsInTheOrderTheyWerePresented) {
    MeasureResult measured;
    measured.regenerable = {cache("npm-cache"), cache("pip-cache"), simulators()};
    const std::vector<CleanupItem> found = {personal("node-modules:a"), personal("docker-vm", "Docker is running"),
                                            personal("node-modules:b")};
    struct Case {
        std::string label;
        CleanerRequest request;
        std::vector<std::string> ids;
        std::vector<std::optional<std::string>> skips;  // expected, per entry
        std::vector<std::string> notes;
        int status;
    };
    auto clean = [](std::vector<std::string> items, std::vector<std::string> approvals, bool permanent) {
        CleanerRequest r;
        r.command = Command::clean;
        r.items = std::move(items);
        r.approvals = std::move(approvals);
        r.permanent = permanent;
        return r;
    };
    const std::string leftOut = "simulators-unavailable title (simulators-unavailable) is left out: only --permanent "
                                "deletes simulators";
    const Case cases[] = {
        {"every cache, to the Trash", clean({}, {}, false), {"npm-cache", "pip-cache"}, {{}, {}}, {leftOut}, 0},
        {"every cache, permanently",
         clean({}, {}, true),
         {"npm-cache", "pip-cache", "simulators-unavailable"},
         {{}, {}, {}},
         {},
         0},
        {"named caches keep the catalog's order",
         clean({"pip-cache", "npm-cache"}, {}, false),
         {"npm-cache", "pip-cache"},
         {{}, {}},
         {},
         0},
        {"a named cache that is not there",
         clean({"uv-cache", "npm-cache"}, {}, false),
         {"npm-cache"},
         {{}},
         {"uv-cache is not here: nothing to clean"},
         0},
        {"named simulators in Trash mode are tried and skipped",
         clean({"simulators-unavailable"}, {}, false),
         {"simulators-unavailable"},
         {"only --permanent deletes simulators"},
         {},
         1},
        {"approved items follow the caches in the order found",
         clean({"npm-cache"}, {"node-modules:b", "node-modules:a"}, false),
         {"npm-cache", "node-modules:a", "node-modules:b"},
         {{}, {}, {}},
         {},
         0},
        {"an approved item that is blocked",
         clean({"npm-cache"}, {"docker-vm"}, false),
         {"npm-cache", "docker-vm"},
         {{}, "Docker is running"},
         {},
         1},
    };
    for (const Case& c : cases) {
        const auto planned = CleanerCommand::plan(c.request, measured, found);
        const auto* plan = std::get_if<CleanPlan>(&planned);
        ASSERT_TRUE(plan) << c.label;
        EXPECT_EQ(plan->ids(), c.ids) << c.label;
        std::vector<std::optional<std::string>> skips;
        for (const auto& entry : plan->entries) skips.push_back(entry.expectedSkip);
        EXPECT_EQ(skips, c.skips) << c.label;
        EXPECT_EQ(plan->notes, c.notes) << c.label;
        EXPECT_EQ(plan->mode, c.request.mode()) << c.label;
        EXPECT_EQ(CleanerCommand::exitStatus(*plan), c.status) << c.label;
    }

    // An approval of something not found stops the whole clean: no cache goes either.
    const auto refused =
        CleanerCommand::plan(clean({}, {"node-modules:a", "node-modules:gone"}, false), measured, found);
    const auto* exit = std::get_if<SuiteLaunch::Exit>(&refused);
    ASSERT_TRUE(exit);
    EXPECT_EQ(exit->status, 2);
    EXPECT_EQ(exit->standardError, "KestrowBrimlet: --approve node-modules:gone: no personal item with that id was "
                                   "found (--measure lists them); nothing was cleaned (see --help)\n");
}

TEST(CleanerCommand, TheExitStatusSaysWhetherEverythingWasDone) {
    CleanupReport done;
    done.deleted.push_back({"npm cache", "/h/.npm/_cacache", 10, DeleteMode::trash, false, std::nullopt});
    CleanupReport empty;
    CleanupReport skipped = done;
    skipped.skipped.push_back({"pip cache", "/h/.cache/pip", "In use by pip (pid 12)"});
    CleanupReport cancelled = done;
    cancelled.cancelled = true;
    CleanupReport refused;
    refused.refusal = "The approval was already used.";
    const std::pair<const CleanupReport*, int> cases[] = {
        {&done, 0}, {&empty, 0}, {&skipped, 1}, {&cancelled, 1}, {&refused, 1}};
    for (const auto& [report, status] : cases)
        EXPECT_EQ(CleanerCommand::exitStatus(*report), status) << report->markdown();
}

TEST(CleanerCommand, ProgressIsALineInAPipeAndABarOnATerminal) {
    using CleanerCommand::ProgressStep;
    EXPECT_EQ(CleanerCommand::plainProgress({"Cleaning", 1, 5, "pip cache"}), "Cleaning 2 of 5: pip cache");
    EXPECT_EQ(CleanerCommand::plainProgress({"Measuring", 3, 8, ""}), "Measuring 3 of 8");

    const std::string hostile = "node_modules in \x1b]0;owned\x07\xc2\x9b"
                                "2J caf\xc3\xa9 \xff";
    for (const std::size_t width : {0u, 1u, 12u, 40u, 80u, 300u}) {
        for (const ProgressStep& step : {ProgressStep{"Cleaning", 0, 3, hostile}, ProgressStep{"Cleaning", 3, 3, "x"},
                                         ProgressStep{"Measuring", 0, 0, ""}}) {
            const std::string bar = CleanerCommand::progressBar(step, width);
            const std::string label = std::to_string(width) + " " + std::to_string(step.done);
            EXPECT_TRUE(kestrow::isValidUtf8(bar)) << label;
            std::size_t columns = 0;
            for (const char c : bar) {
                const auto byte = static_cast<unsigned char>(c);
                EXPECT_FALSE(byte < 0x20 || byte == 0x7f) << label;
                if ((byte & 0xC0) != 0x80) ++columns;
            }
            EXPECT_EQ(bar.find("\xc2\x9b"), std::string::npos) << label;
            EXPECT_LT(columns, std::max<std::size_t>(width, 1)) << label;
        }
    }
    const std::string start = CleanerCommand::progressBar({"Cleaning", 0, 4, "a"}, 200);
    const std::string half = CleanerCommand::progressBar({"Cleaning", 2, 4, "a"}, 200);
    const std::string full = CleanerCommand::progressBar({"Cleaning", 4, 4, "a"}, 200);
    auto filled = [](const std::string& bar) { return std::count(bar.begin(), bar.end(), '#'); };
    auto empty = [](const std::string& bar) { return std::count(bar.begin(), bar.end(), '-'); };
    EXPECT_EQ(filled(start), 0);
    EXPECT_EQ(filled(half), empty(half));
    EXPECT_EQ(empty(full), 0);
    EXPECT_NE(half.find("2/4"), std::string::npos);
}

TEST(CleanerCommand, TheListingShowsEveryItemWithItsKindSizeAndWhatCleaningWouldDo) {
    MeasureResult measured;
    measured.freeBytes = 7'000'000'000;
    measured.totalBytes = 100'000'000'000;
    measured.regenerable = {cache("npm-cache", 12'345'678), simulators()};
    CleanupItem odd = personal("node-modules:we\x1b[2Jird\xff/node_modules");
    odd.title = "node_modules in we\x1b[2Jird\xff";
    odd.note = "Not used in the last 30 days";
    const std::vector<CleanupItem> found = {odd,
                                            personal("docker-vm", "Docker Desktop VM is running \u2014 quit it first")};

    const std::string text = CleanerCommand::measureText("/home/u", measured, found);
    EXPECT_EQ(text.rfind("Home folder: /home/u\n", 0), 0u);
    for (const std::string& expected :
         {std::string("npm-cache"), std::string("regenerable"), ByteFormat::string(12'345'678),
          std::string("moved to the Trash by --clean, deleted with --permanent"),
          std::string("deleted by the simulator tool, only with --clean --permanent (Size is known after the run)"),
          std::string("node-modules:we\\x1b[2Jird\xef\xbf\xbd/node_modules"),
          std::string("moved to the Trash, only with --clean --approve ID (Not used in the last 30 days)"),
          std::string("kept: Docker Desktop VM is running \u2014 quit it first"),
          "Free space: " + ByteFormat::string(7'000'000'000) + " of " + ByteFormat::string(100'000'000'000) + "."})
        EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    EXPECT_TRUE(kestrow::isValidUtf8(text));
    // One line per item under the heading, each starting with its id.
    EXPECT_NE(text.find("\nnpm-cache "), std::string::npos);
    EXPECT_NE(text.find("\ndocker-vm "), std::string::npos);

    EXPECT_NE(CleanerCommand::measureText("/home/u", MeasureResult{}, {}).find("Nothing to clean was found."),
              std::string::npos);

    const auto parsed = kestrow::parseJson(CleanerCommand::measureJSON("/home/u", measured, found));
    const kestrow::JsonValue* json = parsed.ok() ? &*parsed : nullptr;
    ASSERT_TRUE(json);
    EXPECT_EQ(*json->find("home")->asString(), "/home/u");
    EXPECT_EQ(json->find("freeBytes")->asNumber()->asUnsigned(), 7'000'000'000u);
    const kestrow::JsonArray& items = *json->find("items")->asArray();
    ASSERT_EQ(items.size(), 4u);
    const std::vector<std::string> ids = {"npm-cache", "simulators-unavailable",
                                          "node-modules:we\x1b[2Jird\xef\xbf\xbd/node_modules", "docker-vm"};
    for (std::size_t i = 0; i < items.size(); ++i) {
        EXPECT_EQ(*items[i].find("id")->asString(), ids[i]);
        EXPECT_NE(items[i].find("cleaning"), nullptr);
        EXPECT_NE(items[i].find("kind"), nullptr);
    }
    EXPECT_EQ(items[0].find("size")->asNumber()->asUnsigned(), 12'345'678u);
    EXPECT_EQ(items[1].find("size"), nullptr);
    EXPECT_EQ(*items[3].find("blockedReason")->asString(), "Docker Desktop VM is running \u2014 quit it first");
}

TEST(CleanerCommand, ADryRunListsWhatWouldGoAndWhatWouldNot) {
    CleanPlan plan;
    plan.mode = DeleteMode::permanent;
    plan.entries = {{cache("npm-cache", 2'000'000), std::nullopt},
                    {personal("node-modules:a"), std::nullopt},
                    {personal("docker-vm", "Docker is running"), "Docker is running"}};
    plan.notes = {"uv-cache is not here: nothing to clean"};
    const std::string text = CleanerCommand::dryRunText(plan);
    EXPECT_EQ(text.rfind("Dry run: nothing was changed.\n", 0), 0u);
    for (const std::string& expected :
         {"- npm-cache title (npm-cache) \u2014 " + ByteFormat::string(2'000'000) +
              " \u2014 Delete permanently\n  /home/u/.npm-cache\n",
          // Personal data goes to the Trash whatever the mode.
          "- node-modules:a title (node-modules:a) \u2014 " + ByteFormat::string(5000) + " \u2014 Move to Trash\n",
          "- docker-vm title (docker-vm) \u2014 " + ByteFormat::string(5000) + " \u2014 skipped: Docker is running\n",
          "In all: 3 items, " + ByteFormat::string(2'005'000) + ".\n",
          std::string("Not included:\n- uv-cache is not here: nothing to clean\n")})
        EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
    EXPECT_NE(CleanerCommand::dryRunText(CleanPlan{}).find("--clean would find nothing to clean."), std::string::npos);
}

TEST(CleanerCommand, TheHomeIsTheShellsWhenItIsAFolderOfThisUser) {
    kestrow::testing::TempFolder temp;
    kestrow::testing::writeFile(temp / "file", "x");
    const uid_t me = ::getuid();
    const std::string real = kestrow::realHomeFolder();
    struct Case {
        std::optional<std::string> variable;
        uid_t user;
        std::string expected;
    };
    const Case cases[] = {
        {temp.path(), me, temp.path()},
        {temp.path() + "/./", me, temp.path()},
        {std::nullopt, me, real},
        {"relative/home", me, real},
        {"", me, real},
        {"/", me, real},
        {temp / "missing", me, real},
        {temp / "file", me, real},
        // Someone else's folder: a HOME kept across a change of user (sudo) is not this user's home.
        {temp.path(), me + 1, real},
    };
    for (const Case& c : cases)
        EXPECT_EQ(CleanerCommand::homeFolder(c.variable ? c.variable->c_str() : nullptr, c.user), c.expected)
            << (c.variable ? *c.variable : "(unset)") << " as " << c.user;
}

}  // namespace
}  // namespace brimlet
