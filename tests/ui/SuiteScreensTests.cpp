// The suite's popover and floating bar as their presenter describes them: a member running with
// values, one without, one not running; the switch and the shortcut with and without the hot key;
// the bar's controls collapsed and expanded; and the locale reaching every value.
#include <gtest/gtest.h>

#include "suite/ui/SuiteScreens.hpp"

namespace kestrow::suite {
namespace {

const NumberLocale english{".", ",", 3};
const NumberLocale german{",", ".", 3};
const std::string nbsp = "\u00A0";

std::vector<SuiteRow> members() {
    const GlanceMetric memory{"mem", "Memory", 61.25, "%", GlanceLevel::notice};
    const GlanceMetric network{"net", "", StateWord(StateWord::blocked), "", GlanceLevel::ok};
    return {
        SuiteRow{
            GlanceRecord(SuiteApp::brimlet, true, GlanceState::running, 0, 10, GlanceLevel::notice, {memory, network})},
        SuiteRow{GlanceRecord(SuiteApp::garrow, false, GlanceState::running, 0, 10, GlanceLevel::ok, {})},
        SuiteRow{SuiteApp(SuiteApp::corvane)},
    };
}

TEST(SuiteScreens, EveryMemberCarriesItsLineItsNameAndEachValue) {
    const SuiteBarScreen bar = SuiteScreens::bar(members(), true, german);
    ASSERT_EQ(bar.members.size(), 3u);
    const SuiteMemberRow& brimlet = bar.members[0];
    EXPECT_EQ(brimlet.line.name, "Brimlet");
    EXPECT_EQ(brimlet.help, "Kestrow Brimlet");
    EXPECT_EQ(brimlet.line.values, "61,3" + nbsp + "% \u00B7 blocked");
    ASSERT_EQ(brimlet.values.size(), 2u);
    EXPECT_EQ(brimlet.values[0],
              (SuiteValueLine{"Memory", "61,3" + nbsp + "%", GlanceLevel::notice, "Memory 61,3" + nbsp + "%"}));
    // A value without a label is read as its figure alone.
    EXPECT_EQ(brimlet.values[1], (SuiteValueLine{"", "blocked", GlanceLevel::ok, "blocked"}));

    EXPECT_TRUE(bar.members[1].values.empty());
    EXPECT_EQ(bar.members[1].line.accessibilityLabel, "Garrow, ok");
    EXPECT_TRUE(bar.members[2].values.empty());
    EXPECT_EQ(bar.members[2].line.values, "not running");
    EXPECT_EQ(bar.members[2].help, "Kestrow Corvane");
}

TEST(SuiteScreens, ThePopoverNamesTheShortcutOnlyWhenThisHostHoldsIt) {
    struct Case {
        bool visible;
        bool registered;
        std::string shortcut;
    };
    for (const Case& c : {Case{true, true, "\u2303\u2325M"}, Case{false, false, ""}, Case{true, false, ""}}) {
        const SuitePopoverScreen screen = SuiteScreens::popover(members(), c.visible, c.registered, english);
        EXPECT_EQ(screen.title, "Kestrow suite");
        EXPECT_EQ(screen.membersLabel, "Suite members");
        EXPECT_EQ(screen.members.size(), 3u);
        EXPECT_EQ(screen.floatingBar.title, "Show floating bar");
        EXPECT_EQ(screen.floatingBar.action, SuiteCommand::toggleFloatingBar);
        EXPECT_EQ(screen.floatingBar.on, c.visible);
        EXPECT_EQ(screen.floatingBar.accessibilityLabel, SuiteFormat::showBarLabel(c.registered));
        EXPECT_EQ(screen.shortcut, c.shortcut);
    }
    EXPECT_NE(SuiteFormat::showBarLabel(true), SuiteFormat::showBarLabel(false));
}

TEST(SuiteScreens, TheBarsControlsFollowItsExpansion) {
    const SuiteBarScreen collapsed = SuiteScreens::bar({}, false, english);
    EXPECT_EQ(collapsed.accessibilityLabel, "Kestrow suite");
    EXPECT_TRUE(collapsed.members.empty());
    EXPECT_EQ(collapsed.expand.action, SuiteCommand::expandFloatingBar);
    EXPECT_EQ(collapsed.expand.symbol, "chevron.down");
    EXPECT_EQ(collapsed.expand.accessibilityLabel, "Expand floating bar");
    const SuiteBarScreen expanded = SuiteScreens::bar({}, true, english);
    EXPECT_EQ(expanded.expand.action, SuiteCommand::collapseFloatingBar);
    EXPECT_EQ(expanded.expand.symbol, "chevron.up");
    EXPECT_EQ(expanded.expand.accessibilityLabel, "Collapse floating bar");
    for (const SuiteBarScreen* screen : {&collapsed, &expanded}) {
        EXPECT_EQ(screen->hide.action, SuiteCommand::hideFloatingBar);
        EXPECT_EQ(screen->hide.accessibilityLabel, "Hide floating bar");
        EXPECT_EQ(screen->hide.symbol, "xmark");
    }
}

}  // namespace
}  // namespace kestrow::suite
