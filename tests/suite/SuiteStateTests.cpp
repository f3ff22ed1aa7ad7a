#include <gtest/gtest.h>

#include <fstream>

#include "suite/protocol/SuiteState.hpp"
#include "tests/support/TempFolder.hpp"

namespace kestrow::suite {
namespace {

TEST(SuiteSettings, DecodeKeepsUnknownKeysAndDropsBadValues) {
    const std::string text =
        R"({"menuBarValues":[{"app":"brimlet","metric":"mem"},{"app":"nope","metric":"x"},7,)"
        R"({"app":"fennick","metric":"cpu"},{"app":"garrow","metric":"a"},{"app":"jessap","metric":"b"}],)"
        R"("floatingVisible":true,"floatingExpanded":"yes","floatingTopLeft":[1,2,3],"statusItemPosition":12,)"
        R"("future":{"nested":[1,2.5,"x",null]}})";
    const SuiteSettings s = SuiteSettings::decode(text);
    ASSERT_TRUE(s.menuBarValues);
    EXPECT_EQ(*s.menuBarValues, (std::vector<MetricRef>{{SuiteApp::brimlet, "mem"}, {SuiteApp::fennick, "cpu"}}));
    EXPECT_TRUE(s.floatingVisible);
    EXPECT_FALSE(s.floatingExpanded);
    EXPECT_FALSE(s.floatingTopLeft);
    EXPECT_EQ(s.statusItemPosition, 12.0);
    EXPECT_EQ(s.unknown.size(), 3u);  // floatingExpanded, floatingTopLeft, future
    EXPECT_EQ(*writeJson(s.unknown.at("future")), R"({"nested":[1,2.5,"x",null]})");

    // A write always states both floating flags, so only a well-typed flag survives; the rest does.
    const SuiteSettings back = SuiteSettings::decode(s.encode());
    EXPECT_EQ(back.menuBarValues, s.menuBarValues);
    EXPECT_EQ(back.statusItemPosition, s.statusItemPosition);
    EXPECT_EQ(back.unknown.at("future"), s.unknown.at("future"));
    EXPECT_EQ(back.unknown.at("floatingTopLeft"), s.unknown.at("floatingTopLeft"));
    EXPECT_EQ(SuiteSettings::decode(back.encode()), back);
    EXPECT_NE(s.encode().find(R"("future":{"nested":[1,2.5,"x",null]})"), std::string::npos);

    for (const char* corrupt : {"", "[]", "{", "null", "\xFF"})
        EXPECT_EQ(SuiteSettings::decode(corrupt), SuiteSettings{});
    const SuiteSettings empty = SuiteSettings::decode(R"({"menuBarValues":[],"floatingTopLeft":[-4.5,8]})");
    EXPECT_EQ(empty.menuBarValues, std::vector<MetricRef>{});
    EXPECT_EQ(empty.floatingTopLeft, std::make_pair(-4.5, 8.0));
    EXPECT_EQ(SuiteSettings{}.encode(), R"({"floatingExpanded":false,"floatingVisible":false})");
}

TEST(SuiteSettings, ReadAndWriteThroughTheFolder) {
    kestrow::testing::TempFolder temp;
    const SuiteFolder folder(temp.path());
    EXPECT_EQ(SuiteSettings::read(folder), SuiteSettings{});  // missing
    SuiteSettings s;
    s.floatingVisible = true;
    s.unknown["keep"] = JSONValue(std::int64_t{3});
    ASSERT_TRUE(s.write(folder).ok());
    EXPECT_EQ(SuiteSettings::read(folder), s);
    std::ofstream(folder.settingsURL()) << "{corrupt";
    EXPECT_EQ(SuiteSettings::read(folder), SuiteSettings{});
}

GlanceRecord running(SuiteApp app, double at, bool hosting = false, GlanceLevel level = GlanceLevel::ok,
                     std::vector<GlanceMetric> metrics = {}) {
    return GlanceRecord(app, hosting, GlanceState::running, at, 10, level, std::move(metrics));
}

using Records = std::map<SuiteApp, GlanceRecord>;

// Instants as the tests write them: seconds since 1970 on the wall clock, seconds on the reader's
// continuous clock.
WallTime wall(double seconds) { return fromEpochSeconds(seconds); }
ContinuousTime reader(double seconds) { return ContinuousTime(Seconds(seconds)); }

TEST(SuiteStateMachine, ActivationOffDelayWakeAndHost) {
    SuiteStateMachine m;
    // Non-participants never count toward the two.
    m.update({{SuiteApp::brimlet, running(SuiteApp::brimlet, 0)},
              {SuiteApp::dismel, running(SuiteApp::dismel, 0)},
              {SuiteApp::hollin, running(SuiteApp::hollin, 0)}},
             wall(0));
    EXPECT_FALSE(m.isActive);
    EXPECT_EQ(m.rows().size(), 1u);

    Records two = {{SuiteApp::brimlet, running(SuiteApp::brimlet, 100)},
                   {SuiteApp::corvane, running(SuiteApp::corvane, 100)}};
    m.update(two, wall(100));
    EXPECT_TRUE(m.isActive);
    EXPECT_FALSE(m.hostMissing());
    EXPECT_FALSE(m.showsOwnIcon(false));
    EXPECT_TRUE(m.showsOwnIcon(true));
    m.update(two, wall(105));
    EXPECT_FALSE(m.hostMissing());  // exactly 5 s
    m.update(two, wall(105.1));
    EXPECT_TRUE(m.hostMissing());
    EXPECT_TRUE(m.showsOwnIcon(false));
    two[SuiteApp::brimlet] = running(SuiteApp::brimlet, 106, true);
    m.update(two, wall(106));
    EXPECT_FALSE(m.hostMissing());

    // corvane's record goes stale after 110; brimlet keeps publishing.
    Records one = {{SuiteApp::brimlet, running(SuiteApp::brimlet, 0, true)},
                   {SuiteApp::corvane, running(SuiteApp::corvane, 100)}};
    auto step = [&](double now) {
        one[SuiteApp::brimlet].at = now;
        m.update(one, wall(now));
        return m.isActive;
    };
    EXPECT_TRUE(step(111));  // fewer than two since 111
    EXPECT_TRUE(step(120.9));
    m.didWake(wall(120.95));  // a wake restarts the grace
    EXPECT_TRUE(step(125));
    EXPECT_TRUE(step(130.9));
    EXPECT_TRUE(step(131));  // wake grace over: the wait starts now
    EXPECT_TRUE(step(140.9));
    EXPECT_FALSE(step(141));
    EXPECT_FALSE(m.activeSince);
    EXPECT_FALSE(m.hostSeenAt);
    EXPECT_FALSE(m.hostMissing());
    EXPECT_TRUE(m.showsOwnIcon(false));
}

// A wake with no reading inside its grace: the time below two counted before the sleep must not
// carry over, so the first reading after the grace starts the 10 s wait afresh.
TEST(SuiteStateMachine, AWakeWithoutAReadingInsideTheGraceStartsTheWaitAfresh) {
    SuiteStateMachine m;
    Records records = {{SuiteApp::brimlet, running(SuiteApp::brimlet, 100)},
                       {SuiteApp::corvane, running(SuiteApp::corvane, 100)}};
    m.update(records, wall(100));
    ASSERT_TRUE(m.isActive);
    records[SuiteApp::brimlet].at = 115;
    m.update(records, wall(115));  // corvane stale since 110: below two from 115
    ASSERT_EQ(m.belowSince, wall(115.0));
    m.didWake(wall(118));
    EXPECT_FALSE(m.belowSince);
    records[SuiteApp::brimlet].at = 128.5;
    m.update(records, wall(128.5));  // the first reading after the grace (118 + 10)
    EXPECT_TRUE(m.isActive) << "the wait starts at this reading, not at 115";
    records[SuiteApp::brimlet].at = 138.4;
    m.update(records, wall(138.4));
    EXPECT_TRUE(m.isActive);
    records[SuiteApp::brimlet].at = 138.5;
    m.update(records, wall(138.5));
    EXPECT_FALSE(m.isActive);
}

// The wall clock set while times are kept: the waits keep their length.
TEST(SuiteStateMachine, AClockChangeMovesTheKeptTimesAlong) {
    for (const double jump : {-3600.0, 3600.0}) {
        SCOPED_TRACE(jump);
        SuiteStateMachine m;
        Records records = {{SuiteApp::brimlet, running(SuiteApp::brimlet, 100, true)},
                           {SuiteApp::corvane, running(SuiteApp::corvane, 100)}};
        m.update(records, wall(100));
        records.erase(SuiteApp::corvane);
        m.update(records, wall(104));  // below two since 104
        m.clockChanged(Seconds(jump));
        records[SuiteApp::brimlet].at = 109 + jump;
        m.update(records, wall(109 + jump));
        EXPECT_TRUE(m.isActive);
        EXPECT_TRUE(m.rows().size() == 2 && !m.rows()[1].isRunning()) << "corvane still shows as not running";
        records[SuiteApp::brimlet].at = 114 + jump;
        m.update(records, wall(114 + jump));
        EXPECT_FALSE(m.isActive) << "10 s after it fell below two, as without the change";
    }
}

// A record's age on the reader's own clock: a record seen changing is vouched for until its ttl has
// passed on that clock; one never seen changing, or stopped, never is.
TEST(RecordSightings, VouchesForRecordsSeenChangingWithinTheirTtl) {
    RecordSightings seen;
    auto at = [](SuiteApp app, double when, GlanceState state = GlanceState::running) {
        return GlanceRecord(app, false, state, when, 10, GlanceLevel::ok, {});
    };
    seen.observe({{SuiteApp::corvane, at(SuiteApp::corvane, 5000)}, {SuiteApp::garrow, at(SuiteApp::garrow, 1)}},
                 reader(50));
    EXPECT_TRUE(seen.vouched(reader(50)).empty()) << "a first sighting says nothing of its age";
    seen.observe({{SuiteApp::corvane, at(SuiteApp::corvane, 5004)}, {SuiteApp::garrow, at(SuiteApp::garrow, 1)}},
                 reader(54));
    EXPECT_EQ(seen.vouched(reader(54)), std::set<SuiteApp>{SuiteApp::corvane});
    EXPECT_EQ(seen.vouched(reader(63.9)), std::set<SuiteApp>{SuiteApp::corvane});
    EXPECT_TRUE(seen.vouched(reader(64)).empty());
    seen.observe({{SuiteApp::corvane, at(SuiteApp::corvane, 5008, GlanceState::stopped)}}, reader(58));
    EXPECT_TRUE(seen.vouched(reader(58)).empty()) << "a stopped record is never fresh";
    EXPECT_EQ(seen.seen.count(SuiteApp::garrow), 0u) << "a record that went away is forgotten";
}

TEST(SuiteStateMachine, RowsLevelsAndMenuBarValues) {
    SuiteStateMachine m;
    const GlanceMetric mem{"mem", "Memory", 40.0, "%", GlanceLevel::ok};
    const GlanceMetric cpu{"cpu", "CPU", 7.0, "%", GlanceLevel::ok};
    const GlanceMetric fw{"fw", "Firewall", StateWord::on, "", GlanceLevel::notice};
    m.update({{SuiteApp::fennick, running(SuiteApp::fennick, 0, false, GlanceLevel::notice, {fw})},
              {SuiteApp::brimlet, running(SuiteApp::brimlet, 0, true, GlanceLevel::ok, {mem, cpu})},
              {SuiteApp::garrow, running(SuiteApp::garrow, 0, false, GlanceLevel::alert)}},
             wall(0));
    ASSERT_EQ(m.rows().size(), 3u);
    EXPECT_EQ(m.rows()[0].app(), SuiteApp(SuiteApp::brimlet));  // catalogue order
    EXPECT_EQ(m.worstLevel(), GlanceLevel(GlanceLevel::alert));

    EXPECT_EQ(m.menuBarValues(std::nullopt).size(), 1u);
    EXPECT_EQ(m.menuBarValues(std::vector<MetricRef>{}).at(0).second, mem);
    const auto chosen = m.menuBarValues(
        std::vector<MetricRef>{{SuiteApp::fennick, "fw"}, {SuiteApp::brimlet, "gone"}, {SuiteApp::brimlet, "cpu"}});
    ASSERT_EQ(chosen.size(), 1u);  // the missing one is skipped and not replaced; only two are looked at
    EXPECT_EQ(chosen[0].second, fw);

    // brimlet stops; garrow falls silent.
    GlanceRecord stopped = running(SuiteApp::brimlet, 1);
    stopped.state = GlanceState::stopped;
    const Records later = {{SuiteApp::brimlet, stopped},
                           {SuiteApp::fennick, running(SuiteApp::fennick, 59, false, GlanceLevel::notice, {fw})}};
    m.update(later, wall(59));
    ASSERT_EQ(m.rows().size(), 3u);
    EXPECT_FALSE(m.rows()[0].isRunning());  // stopped shows as not running at once
    EXPECT_EQ(m.worstLevel(), GlanceLevel(GlanceLevel::notice));
    m.update(later, wall(60));
    EXPECT_EQ(m.rows().size(), 3u);  // garrow was last fresh at 0: 60 s ago still shown
    m.update(later, wall(61));       // brimlet and garrow were last fresh 61 s ago: gone from the list
    ASSERT_EQ(m.rows().size(), 1u);
    EXPECT_EQ(m.rows()[0].app(), SuiteApp(SuiteApp::fennick));
}

}  // namespace
}  // namespace kestrow::suite
