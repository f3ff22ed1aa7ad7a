// The settings window as its presenter describes it, over a monitor store with in-memory defaults:
// every section and row, the state each control shows, which thresholds are offered while their
// alert or badge is off, the login item's states, and every change handed back reaching the store.
#include <gtest/gtest.h>

#include "app/screens/SettingsChoices.hpp"
#include "app/screens/SettingsScreen.hpp"
#include "tests/app/AppTestSupport.hpp"

namespace brimlet {
namespace {

using kestrow::InMemoryUserDefaults;
using testing::StoreRig;

struct SettingsScreenRig : ::testing::Test {
    StoreRig rig;
    InMemoryUserDefaults defaults;
    std::unique_ptr<MonitorStore> store = rig.makeStore(defaults);

    SettingsScreen show(SettingsContext context = {}) { return SettingsPresenter::screen(*store, context); }

    static const SettingsRow& find(const SettingsScreen& screen, SettingsCommand action) {
        for (const SettingsSection& section : screen.sections)
            for (const SettingsRow& row : section.rows)
                if (row.kind != SettingsRow::Kind::note && row.control.action == action) return row;
        ADD_FAILURE() << "no control for action " << static_cast<int>(action);
        static const SettingsRow none;
        return none;
    }
    static std::vector<std::string> notes(const SettingsScreen& screen) {
        std::vector<std::string> found;
        for (const SettingsSection& section : screen.sections)
            for (const SettingsRow& row : section.rows)
                if (row.kind == SettingsRow::Kind::note) found.push_back(row.text);
        return found;
    }
};

TEST_F(SettingsScreenRig, EverySectionRowAndNoteIsWritten) {
    const SettingsScreen screen = show();
    EXPECT_EQ(screen.title, "Settings");
    std::vector<std::string> headings;
    for (const SettingsSection& section : screen.sections) headings.push_back(section.heading);
    EXPECT_EQ(headings, (std::vector<std::string>{"Alerts", "Menu Bar", "Floating Monitor", "Dock", "Startup"}));

    struct Expected {
        SettingsCommand action;
        SettingsRow::Kind kind;
        std::string caption;
        std::string spoken;
    };
    using K = SettingsRow::Kind;
    const Expected table[] = {
        {SettingsCommand::memoryPressureAlert, K::checkbox, "Notify me when:", "Memory pressure stays critical"},
        {SettingsCommand::lowDiskAlert, K::checkbox, "", "Disk space is low"},
        {SettingsCommand::lowDiskThreshold, K::choice, "", "Low disk alert threshold"},
        {SettingsCommand::heavyAppAlert, K::checkbox, "", "An app uses a lot of memory"},
        {SettingsCommand::heavyAppThreshold, K::choice, "", "Heavy app alert threshold"},
        {SettingsCommand::menuBarDisplay, K::choice, "Menu bar shows:", "Menu bar shows"},
        {SettingsCommand::ownIcon, K::checkbox, "", "Show my own menu bar icon"},
        {SettingsCommand::floatingVisible, K::checkbox, "Floating monitor:", "Show the floating monitor"},
        {SettingsCommand::floatingTheme, K::choice, "Theme:", "Floating monitor theme"},
        {SettingsCommand::floatingLook, K::choice, "Look:", "Floating monitor look"},
        {SettingsCommand::dockBadges, K::choice, "Show on Dock icons:", "Show on Dock icons"},
        {SettingsCommand::dockMemoryThreshold, K::choice, "Memory badge from:", "Memory badge threshold"},
        {SettingsCommand::dockCpuThreshold, K::choice, "CPU badge from:", "CPU badge threshold"},
        {SettingsCommand::launchAtLogin, K::checkbox, "Login:", "Launch at login"},
    };
    for (const Expected& expected : table) {
        SCOPED_TRACE(expected.spoken);
        const SettingsRow& row = find(screen, expected.action);
        EXPECT_EQ(row.kind, expected.kind);
        EXPECT_EQ(row.caption, expected.caption);
        EXPECT_EQ(row.control.spokenLabel(), expected.spoken);
        if (row.kind == K::choice) {
            EXPECT_FALSE(row.choices.empty());
            EXPECT_GE(row.selected, 0) << "the value in effect is always one of the choices";
        }
    }
    EXPECT_EQ(
        notes(screen),
        (std::vector<std::string>{
            "Alerts only inform. They never clean or quit anything. Each alert waits 30 minutes before repeating.",
            "When two or more Kestrow apps are running they share one menu bar item with a readout of the whole suite.",
            "Show or hide it anywhere with \u2303\u2325M.",
            "Needs Accessibility access to read where Dock icons are. Nothing else is read.",
        }));
}

TEST_F(SettingsScreenRig, ThresholdsAreOfferedOnlyWhileTheirAlertOrBadgeIsOn) {
    SettingsScreen screen = show();
    EXPECT_TRUE(find(screen, SettingsCommand::lowDiskThreshold).control.enabled);
    EXPECT_TRUE(find(screen, SettingsCommand::heavyAppThreshold).control.enabled);
    EXPECT_FALSE(find(screen, SettingsCommand::dockMemoryThreshold).control.enabled) << "badges are off by default";
    EXPECT_FALSE(find(screen, SettingsCommand::dockCpuThreshold).control.enabled);

    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::lowDiskAlert, false, -1));
    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::heavyAppAlert, false, -1));
    ASSERT_TRUE(
        SettingsPresenter::apply(*store, SettingsCommand::dockBadges, false, static_cast<int>(DockBadgeMode::memory)));
    screen = show();
    EXPECT_FALSE(find(screen, SettingsCommand::lowDiskAlert).on);
    EXPECT_FALSE(find(screen, SettingsCommand::lowDiskThreshold).control.enabled);
    EXPECT_FALSE(find(screen, SettingsCommand::heavyAppThreshold).control.enabled);
    EXPECT_TRUE(find(screen, SettingsCommand::dockMemoryThreshold).control.enabled);
    EXPECT_FALSE(find(screen, SettingsCommand::dockCpuThreshold).control.enabled);
}

TEST_F(SettingsScreenRig, EveryChangeHandedBackReachesTheStoreAndShows) {
    SettingsScreen screen = show();
    // The last choice of each menu, so that every change moves away from the default.
    const auto last = [&](SettingsCommand action) { return static_cast<int>(find(screen, action).choices.size()) - 1; };

    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::memoryPressureAlert, false, -1));
    EXPECT_FALSE(store->alertSettings().memoryPressureEnabled);
    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::lowDiskThreshold, false,
                                         last(SettingsCommand::lowDiskThreshold)));
    EXPECT_EQ(store->alertSettings().lowDiskThreshold, 100'000'000'000ULL);
    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::heavyAppThreshold, false, 0));
    EXPECT_EQ(store->alertSettings().heavyAppThreshold, 2'147'483'648ULL);
    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::menuBarDisplay, false, 0));
    EXPECT_EQ(store->menuBarDisplay(), MenuBarDisplay::iconOnly);
    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::floatingVisible, true, -1));
    EXPECT_TRUE(store->floatingVisible());
    ASSERT_TRUE(
        SettingsPresenter::apply(*store, SettingsCommand::floatingTheme, false, last(SettingsCommand::floatingTheme)));
    EXPECT_EQ(store->floatingTheme(), FloatingTheme::dark);
    ASSERT_TRUE(
        SettingsPresenter::apply(*store, SettingsCommand::floatingLook, false, last(SettingsCommand::floatingLook)));
    EXPECT_EQ(store->floatingLook(), FloatingLook::faint);
    ASSERT_TRUE(
        SettingsPresenter::apply(*store, SettingsCommand::dockBadges, false, last(SettingsCommand::dockBadges)));
    EXPECT_EQ(store->dockBadges(), DockBadgeMode::cpu);
    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::dockCpuThreshold, false, 0));
    EXPECT_EQ(store->dockBadgeSettings().cpuThreshold, 5);
    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::dockMemoryThreshold, false,
                                         last(SettingsCommand::dockMemoryThreshold)));
    EXPECT_EQ(store->dockBadgeSettings().memoryThreshold, 4'294'967'296ULL);

    screen = show();
    EXPECT_FALSE(find(screen, SettingsCommand::memoryPressureAlert).on);
    EXPECT_TRUE(find(screen, SettingsCommand::floatingVisible).on);
    const SettingsRow& lowDisk = find(screen, SettingsCommand::lowDiskThreshold);
    EXPECT_EQ(lowDisk.selected, static_cast<int>(lowDisk.choices.size()) - 1);
    EXPECT_EQ(find(screen, SettingsCommand::heavyAppThreshold).selected, 0);
    EXPECT_EQ(find(screen, SettingsCommand::menuBarDisplay).selected, 0);
    EXPECT_EQ(find(screen, SettingsCommand::floatingLook)
                  .choices[static_cast<std::size_t>(find(screen, SettingsCommand::floatingLook).selected)],
              SettingsChoices::title(FloatingLook::faint));
}

TEST_F(SettingsScreenRig, AChoiceThatIsNotListedAndTheFrontEndsOwnCommandsAreNotApplied) {
    const AlertSettings before = store->alertSettings();
    for (const int index : {-1, 99}) {
        EXPECT_FALSE(SettingsPresenter::apply(*store, SettingsCommand::lowDiskThreshold, false, index));
        EXPECT_FALSE(SettingsPresenter::apply(*store, SettingsCommand::floatingTheme, false, index));
        EXPECT_FALSE(SettingsPresenter::apply(*store, SettingsCommand::dockCpuThreshold, false, index));
    }
    EXPECT_FALSE(SettingsPresenter::apply(*store, SettingsCommand::ownIcon, true, -1));
    EXPECT_FALSE(SettingsPresenter::apply(*store, SettingsCommand::launchAtLogin, true, -1));
    EXPECT_EQ(store->alertSettings(), before);
    EXPECT_EQ(store->floatingTheme(), FloatingTheme::system);
}

TEST_F(SettingsScreenRig, AThresholdWrittenByHandIsListedAndChosen) {
    AlertSettings alerts = store->alertSettings();
    alerts.lowDiskThreshold = 7'000'000'000ULL;
    store->setAlertSettings(alerts);
    const auto screen = show();  // the row is read from this screen, which must outlive it
    const SettingsRow& row = find(screen, SettingsCommand::lowDiskThreshold);
    ASSERT_GE(row.selected, 0);
    // Picking it again keeps it.
    ASSERT_TRUE(SettingsPresenter::apply(*store, SettingsCommand::lowDiskThreshold, false, row.selected));
    EXPECT_EQ(store->alertSettings().lowDiskThreshold, 7'000'000'000ULL);
}

TEST_F(SettingsScreenRig, TheLoginSwitchShowsWhatTheSystemSays) {
    struct Case {
        LoginItemState state;
        std::string failure;
        bool on;
        bool enabled;
        std::string note;
        screens::Tone tone;
    };
    const Case cases[] = {
        {LoginItemState::enabled, "", true, true, "", screens::Tone::secondary},
        {LoginItemState::disabled, "", false, true, "", screens::Tone::secondary},
        {LoginItemState::unavailable, "", false, false, "", screens::Tone::secondary},
        {LoginItemState::requiresApproval, "", true, true,
         "Allow it in System Settings \u203A General \u203A Login Items.", screens::Tone::secondary},
        {LoginItemState::disabled, "Operation not permitted", false, true,
         "Couldn't change login item: Operation not permitted", screens::Tone::failure},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.state));
        const SettingsScreen screen = show({false, c.state, c.failure});
        const SettingsRow& login = find(screen, SettingsCommand::launchAtLogin);
        EXPECT_EQ(login.on, c.on);
        EXPECT_EQ(login.control.enabled, c.enabled);
        const SettingsSection& startup = screen.sections.back();
        if (c.note.empty()) {
            EXPECT_EQ(startup.rows.size(), 1u);
        } else {
            ASSERT_EQ(startup.rows.size(), 2u);
            EXPECT_EQ(startup.rows[1].text, c.note);
            EXPECT_EQ(startup.rows[1].tone, c.tone);
        }
    }
    EXPECT_TRUE(find(show({true, LoginItemState::disabled, ""}), SettingsCommand::ownIcon).on);
    EXPECT_FALSE(find(show({false, LoginItemState::disabled, ""}), SettingsCommand::ownIcon).on);
}

}  // namespace
}  // namespace brimlet
