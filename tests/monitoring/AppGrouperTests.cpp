#include <gtest/gtest.h>

#include "core/monitoring/MonitorTypes.hpp"

namespace brimlet {
namespace {

TEST(AppGrouper, IdentityFromPathArgumentAndName) {
    struct Case {
        std::optional<std::string> path, argv0;
        std::string name, key, shown;
        std::optional<std::string> bundle;
    };
    const Case cases[] = {
        {"/Applications/Big.app/Contents/Frameworks/Inner.app/Contents/MacOS/Inner", std::nullopt, "Inner",
         "/Applications/Big.app", "Big", "/Applications/Big.app"},
        {"/Applications/Big.app/Contents/MacOS/Big", "/usr/bin/ignored", "Big", "/Applications/Big.app", "Big",
         "/Applications/Big.app"},
        {"//Applications///Mail.app//Contents", std::nullopt, "Mail", "/Applications/Mail.app", "Mail",
         "/Applications/Mail.app"},
        {"/opt/.app/bin/tool", std::nullopt, "tool", "cmd:tool", "tool", std::nullopt},
        {"Applications/Rel.app/Contents/MacOS/Rel", std::nullopt, "Rel", "cmd:Rel", "Rel", std::nullopt},
        {"/usr/bin/node", "/usr/local/bin/node", "node-x", "cmd:node", "node", std::nullopt},
        {std::nullopt, "-zsh", "zsh-name", "cmd:zsh", "zsh", std::nullopt},
        {std::nullopt, "-", "fallback", "cmd:fallback", "fallback", std::nullopt},
        {std::nullopt, "/usr/bin/", "fallback", "cmd:bin", "bin", std::nullopt},
        {std::nullopt, "///", "slashes", "cmd:slashes", "slashes", std::nullopt},
        {std::nullopt, std::nullopt, "", "cmd:", "", std::nullopt},
        {"/x/a.app", std::nullopt, "a", "/x/a.app", "a", "/x/a.app"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path.value_or("<none>") + " | " + c.argv0.value_or("<none>"));
        const auto id = AppGrouper::identity(c.path, c.argv0, c.name);
        EXPECT_EQ(id.key, c.key);
        EXPECT_EQ(id.name, c.shown);
        EXPECT_EQ(id.bundlePath, c.bundle);
    }
    EXPECT_FALSE(AppGrouper::outermostBundle(std::nullopt));
}

ProcessSample sample(std::int32_t pid, std::string path, std::uint64_t footprint, std::optional<double> cpu) {
    ProcessSample s;
    s.key = {pid, 1};
    s.name = "p" + std::to_string(pid);
    s.path = std::move(path);
    s.footprint = footprint;
    s.cpuPercent = cpu;
    return s;
}

TEST(AppGrouper, GroupsSumMembersAndSortByFootprint) {
    std::vector<ProcessSample> samples = {
        sample(10, "/Applications/A.app/Contents/MacOS/A", 100, std::nullopt),
        sample(11, "/usr/bin/tool", 500, 3.0),
        sample(12, "/Applications/A.app/Contents/XPCServices/H.xpc/H", 450, std::nullopt),
        sample(13, "/Applications/B.app/Contents/MacOS/B", 20, 1.5),
        sample(14, "/Applications/B.app/Contents/MacOS/B", 20, std::nullopt),
    };
    samples[4].diskWritePerSecond = 7;
    const auto groups = AppGrouper::group(samples);
    ASSERT_EQ(groups.size(), 3u);
    EXPECT_EQ(groups[0].id, "/Applications/A.app");
    EXPECT_EQ(groups[0].pids, (std::vector<std::int32_t>{10, 12}));
    EXPECT_EQ(groups[0].footprint, 550u);
    EXPECT_FALSE(groups[0].cpuPercent);  // no member had one
    EXPECT_TRUE(groups[0].isGUIApp());
    EXPECT_EQ(groups[1].id, "cmd:p11");  // no argv0: the process name
    EXPECT_FALSE(groups[1].isGUIApp());
    EXPECT_EQ(groups[2].name, "B");
    EXPECT_EQ(groups[2].cpuPercent, 1.5);  // one member without a figure counts as 0
    EXPECT_FALSE(groups[2].diskReadPerSecond);
    EXPECT_EQ(groups[2].diskTotalPerSecond(), 7);
    std::size_t members = 0;
    for (const auto& g : groups) members += g.pids.size();
    EXPECT_EQ(members, samples.size());

    // Equal footprints keep the order in which their first process was seen, however many tie.
    std::vector<ProcessSample> tied;
    std::vector<std::string> expected = {"cmd:p99"};
    for (std::int32_t pid = 40; pid > 20; --pid) {
        tied.push_back(sample(pid, "/usr/bin/tool", 30, std::nullopt));
        expected.push_back("cmd:p" + std::to_string(pid));
    }
    tied.push_back(sample(99, "/usr/bin/tool", 31, std::nullopt));
    std::vector<std::string> ids;
    for (const auto& g : AppGrouper::group(tied)) ids.push_back(g.id);
    EXPECT_EQ(ids, expected);
}

TEST(AppGrouper, CachedIdentityWinsOverPath) {
    ProcessSample s = sample(1, "/Applications/A.app/Contents/MacOS/A", 1, std::nullopt);
    s.app = AppGrouper::Identity{"cmd:cached", "cached", std::nullopt};
    EXPECT_EQ(AppGrouper::group({s}).at(0).id, "cmd:cached");
}

}  // namespace
}  // namespace brimlet
