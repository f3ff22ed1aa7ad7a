// The popover, the floating monitor and the dashboard as their presenters describe them, over a
// monitor store on the manual loop with scripted figures: before the first sample, with figures,
// with an alert that could not be shown, and the application rows with what quitting each offers.
#include <gtest/gtest.h>

#include "app/screens/DashboardFigures.hpp"
#include "app/screens/MonitorScreens.hpp"
#include "app/screens/ScreenWording.hpp"
#include "tests/app/AppTestSupport.hpp"

namespace brimlet {
namespace {

using kestrow::InMemoryUserDefaults;
using testing::StoreRig;

constexpr std::uint64_t GiB = 1ULL << 30;

struct MonitorScreensRig : ::testing::Test {
    StoreRig rig;
    InMemoryUserDefaults defaults;
    std::unique_ptr<MonitorStore> store;

    MonitorScreensRig() {
        // A bundled application beside the command-line processes of the quiet machine.
        testing::FakeProcess& safari = rig.processes.add(40, 3 * GiB / 2, "Safari", 1);
        safari.path = "/Applications/Safari.app/Contents/MacOS/Safari";
    }
    void sample() {
        int ticks = 0;
        // The old store (and its engine) goes first: two engines would sample the one fake reader at
        // once, and it is not made for that.
        store.reset();
        store = rig.makeStore(defaults);
        store->onTick = [&] { ++ticks; };
        ASSERT_TRUE(rig.settle([&] { return ticks == 1; }));
        store->onTick = nullptr;
    }
    const AppListRow* row(const std::vector<AppListRow>& rows, std::string_view name) {
        for (const AppListRow& each : rows)
            if (each.name == name) return &each;
        return nullptr;
    }
};

TEST_F(MonitorScreensRig, BeforeTheFirstSampleEveryScreenWaits) {
    store = rig.makeStore(defaults);
    const PopoverScreen popover = MonitorScreens::popover(*store);
    EXPECT_EQ(popover.title, "Kestrow Brimlet");
    EXPECT_EQ(popover.waiting, ScreenWording::forThisPlatform().waitingForFirstSample);
    EXPECT_TRUE(popover.readings.empty());
    EXPECT_TRUE(popover.apps.empty());
    EXPECT_TRUE(popover.note.empty());
    ASSERT_EQ(popover.footer.size(), 4u);
    const std::vector<MonitorCommand> actions{MonitorCommand::openDashboard, MonitorCommand::openCleanup,
                                              MonitorCommand::openSettings, MonitorCommand::quitProduct};
    for (std::size_t i = 0; i < actions.size(); ++i) EXPECT_EQ(popover.footer[i].action, actions[i]);
    EXPECT_EQ(popover.footer[3].title, "Quit Kestrow Brimlet");

    const DashboardScreen dashboard = MonitorScreens::dashboard(*store);
    EXPECT_EQ(dashboard.status, "Taking the first sample\u2026");
    EXPECT_FALSE(dashboard.showsDismiss);
    EXPECT_TRUE(dashboard.rows.empty());
    EXPECT_FALSE(dashboard.quitSelected.enabled);

    const FloatingMonitorScreen floating = MonitorScreens::floating(*store);
    EXPECT_EQ(floating.memoryPercent, "\u2014");
    EXPECT_EQ(floating.cpu, "\u2014");
    ASSERT_EQ(floating.readings.size(), 4u);
    for (const ReadingRow& reading : floating.readings) EXPECT_EQ(reading.value, "\u2014") << reading.id;
}

// The words that name the machine are the platform's: the Mac's exactly as they were on a Mac, and
// nowhere a "Mac" or "macOS" on any other platform.
TEST_F(MonitorScreensRig, OnlyTheMacsScreensNameTheMac) {
    store = rig.makeStore(defaults);
    std::vector<std::string> texts{MonitorScreens::popover(*store).waiting};
    sample();
    for (const ReadingRow& reading : MonitorScreens::popover(*store).readings)
        texts.insert(texts.end(), {reading.title, reading.value, reading.caption, reading.accessibilityLabel});
    for (const DashboardFigure& figure : DashboardFigures::figures(*store->snapshot()))
        texts.insert(texts.end(), {figure.title, figure.value, figure.detail});
    const ScreenWording& here = ScreenWording::forThisPlatform();
    const ScreenWording mac;
    EXPECT_EQ(mac.thermalCaption, "Is the Mac throttling?");
    EXPECT_EQ(mac.pressureCaption, "How hard macOS works to free memory");
    EXPECT_EQ(mac.waitingForFirstSample, "Reading the Mac\u2026");
    EXPECT_EQ(mac.graphicsNotReported, "Not reported by this Mac");
    EXPECT_EQ(mac.onThisMachine, "on this Mac");
    const std::string all = [&] {
        std::string joined;
        for (const std::string& text : texts) joined += text + "\n";
        return joined;
    }();
    for (const std::string* word : {&here.thermalCaption, &here.pressureCaption})
        EXPECT_NE(all.find(*word), std::string::npos) << *word << "\n" << all;
    EXPECT_NE(all.find(here.waitingForFirstSample), std::string::npos) << all;
    if (here == mac) return;  // the Mac's build keeps its words
    EXPECT_EQ(all.find("Mac"), std::string::npos) << all;
    EXPECT_EQ(all.find("macOS"), std::string::npos) << all;
    for (const std::string* word : {&here.thermalCaption, &here.pressureCaption, &here.waitingForFirstSample,
                                    &here.graphicsNotReported, &here.onThisMachine})
        EXPECT_EQ(word->find("Mac"), std::string::npos) << *word;
}

TEST_F(MonitorScreensRig, WithFiguresEveryReadingAndRowIsWritten) {
    sample();
    const PopoverScreen popover = MonitorScreens::popover(*store);
    EXPECT_TRUE(popover.waiting.empty());
    std::vector<std::string> ids;
    for (const ReadingRow& reading : popover.readings) ids.push_back(reading.id);
    EXPECT_EQ(ids, (std::vector<std::string>{"memory", "pressure", "swap", "cpu", "gpu", "disk", "thermal"}));
    const ReadingRow& memory = popover.readings[0];
    EXPECT_EQ(memory.value, "8.00 GB of 16.00 GB");
    ASSERT_TRUE(memory.gauge);
    EXPECT_DOUBLE_EQ(*memory.gauge, 0.5);
    EXPECT_TRUE(memory.grade);
    EXPECT_EQ(memory.accessibilityLabel, "Memory, 8.00 GB of 16.00 GB, " + std::string(memory.grade->rawValue()));
    EXPECT_EQ(popover.readings[2].caption, "Memory spilled to disk");
    EXPECT_EQ(popover.readings[5].value, "500.0 GB free of 1.00 TB");
    EXPECT_EQ(popover.readings[6].caption, ScreenWording::forThisPlatform().thermalCaption + " No");
    EXPECT_EQ(popover.appsHint, "Hover an app to quit it");
    ASSERT_FALSE(popover.apps.empty());
    EXPECT_LE(popover.apps.size(), MonitorScreens::popoverApps);
    EXPECT_EQ(popover.apps[0].name, "Safari");  // the largest first

    // The bundled application can be asked to quit; a command-line process only says how to.
    const AppListRow* safari = row(popover.apps, "Safari");
    ASSERT_NE(safari, nullptr);
    EXPECT_EQ(safari->bundlePath, std::optional<std::string>("/Applications/Safari.app"));
    EXPECT_TRUE(safari->quit.enabled);
    EXPECT_EQ(safari->quit.action, MonitorCommand::quitApp);
    EXPECT_EQ(safari->quit.target, safari->id);
    EXPECT_EQ(safari->quit.accessibilityLabel, "Quit Safari");
    EXPECT_EQ(safari->memory, "1.50 GB");
    const AppListRow* init = row(popover.apps, "init");
    ASSERT_NE(init, nullptr);
    EXPECT_FALSE(init->bundlePath);
    EXPECT_EQ(init->fallbackSymbol, "terminal");
    EXPECT_FALSE(init->quit.enabled);
    EXPECT_EQ(init->quit.help, "Quit it from the app or terminal that started it.");

    // The question before quitting, and none for what cannot be quit.
    const std::optional<AppGroup> group = MonitorScreens::group(*store, safari->id);
    ASSERT_TRUE(group);
    const std::optional<MonitorDialog> ask = MonitorScreens::quitDialog(*group);
    ASSERT_TRUE(ask);
    EXPECT_EQ(ask->title, "Quit Safari?");
    EXPECT_EQ(ask->message, "Safari is using 1.50 GB. It will be asked to quit normally, like choosing Quit from its "
                            "menu, and may ask you to save your work.");
    ASSERT_EQ(ask->buttons.size(), 2u);
    EXPECT_EQ(ask->buttons[0].title, "Quit");
    EXPECT_EQ(ask->buttons[0].action, MonitorCommand::confirmQuitApp);
    EXPECT_EQ(ask->buttons[0].target, safari->id);
    EXPECT_EQ(ask->buttons[1].title, "Cancel");
    EXPECT_FALSE(MonitorScreens::quitDialog(*MonitorScreens::group(*store, init->id)));
    EXPECT_FALSE(MonitorScreens::group(*store, "gone"));

    // The dashboard: the cadence, every group, and a quit button that follows the selection.
    DashboardScreen dashboard = MonitorScreens::dashboard(*store);
    EXPECT_EQ(dashboard.status, "Live every 2 seconds \u00B7 last 5 minutes kept in memory");
    EXPECT_EQ(dashboard.rows.size(), store->snapshot()->apps.size());
    ASSERT_EQ(dashboard.charts.size(), 3u);
    EXPECT_EQ(dashboard.charts[2].legend.size(), 2u);
    EXPECT_EQ(dashboard.charts[0].now, "8.00 GB");
    EXPECT_FALSE(dashboard.quitSelected.enabled);
    dashboard = MonitorScreens::dashboard(*store, safari->id);
    EXPECT_TRUE(dashboard.quitSelected.enabled);
    EXPECT_EQ(dashboard.quitSelected.target, safari->id);
    dashboard = MonitorScreens::dashboard(*store, init->id);
    EXPECT_FALSE(dashboard.quitSelected.enabled);
    EXPECT_EQ(dashboard.quitSelected.help, "Quit it from the app or terminal that started it.");

    // The floating monitor's bar and table read the glance.
    const FloatingMonitorScreen floating = MonitorScreens::floating(*store);
    EXPECT_EQ(floating.memoryPercent, "50%");
    EXPECT_EQ(floating.readings[0].value, "8.00 GB of 16.00 GB");
    EXPECT_EQ(floating.readings[3].value, "500.0 GB");
    EXPECT_EQ(floating.menu[0].action, MonitorCommand::expandFloating);
    store->setFloatingExpanded(true);
    EXPECT_EQ(MonitorScreens::floating(*store).menu[0].action, MonitorCommand::collapseFloating);
    EXPECT_EQ(MonitorScreens::floating(*store).menu[1].title, "Hide Floating Monitor");
}

TEST_F(MonitorScreensRig, AnAlertThatCouldNotBeShownIsTold) {
    rig.system.volumes["/"].availableBlocks = 2'000'000'000ULL / 4096;  // low: an alert fires
    rig.notifier.delivers = false;
    store = rig.makeStore(defaults);
    ASSERT_TRUE(rig.settle([&] { return store->hasUndeliveredAlert(); }));
    const PopoverScreen popover = MonitorScreens::popover(*store);
    EXPECT_EQ(popover.note, "An alert could not be shown. Allow notifications for Kestrow Brimlet in System Settings.");
    const DashboardScreen dashboard = MonitorScreens::dashboard(*store);
    EXPECT_EQ(dashboard.status, "An alert could not be shown. Allow notifications for this app in System Settings.");
    EXPECT_EQ(dashboard.statusTone, screens::Tone::warning);
    EXPECT_TRUE(dashboard.showsDismiss);
    EXPECT_EQ(dashboard.dismissAlertNote.action, MonitorCommand::dismissAlertNote);
}

}  // namespace
}  // namespace brimlet
