// Shared pieces of the application tests: a monitor store on a manual loop over scripted readers,
// and a notifier that records what it was asked to post.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/startup/BrimletApplication.hpp"
#include "app/stores/MonitorStore.hpp"
#include "base/MainLoop.hpp"
#include "base/UserDefaults.hpp"
#include "tests/monitoring/FakeReaders.hpp"
#include "tests/support/ManualMainLoop.hpp"

namespace brimlet::testing {

class RecordingNotifier final : public Notifier {
public:
    bool delivers = true;
    std::vector<Alert> posted;

    explicit RecordingNotifier(kestrow::MainLoop& loop) : loop_(loop) {}
    void post(const Alert& alert, Completion done) override {
        posted.push_back(alert);
        // Answers later, on the loop, as a real notification centre does.
        loop_.post([done, delivered = delivers] { done(delivered); });
    }

private:
    kestrow::MainLoop& loop_;
};

// Scripted figures of a quiet machine: 16 GiB with half in use, 500 GB of 1 TB free.
inline void quietMachine(FakeSystemReading& system, FakeProcessReading& processes) {
    constexpr std::uint64_t GiB = 1ULL << 30;
    system.memoryCounters = MeminfoFigures{16 * GiB, 8 * GiB, 0, 0, 0, 0, 0, 0};
    system.total = 16 * GiB;
    system.volumes["/"] = VolumeBlocks{500'000'000'000ULL / 4096, 1'000'000'000'000ULL / 4096, 4096};
    processes.add(1, 300 << 20, "init", 0);
    processes.add(2, 200 << 20, "editor", 1);
}

// Alerts off and the menu bar icon alone: nothing but surfaces decides the cadence, and no glance
// loop runs between samples.
inline void idleSettings(kestrow::UserDefaults& defaults) {
    (void)defaults.set("alertSettings",
                       kestrow::JsonValue(std::string(R"({"heavyAppEnabled":false,"heavyAppThreshold":8589934592,)"
                                                      R"("lowDiskEnabled":false,"lowDiskThreshold":10000000000,)"
                                                      R"("memoryPressureEnabled":false})")));
    (void)defaults.set("menuBarDisplay", kestrow::JsonValue("iconOnly"));
}

struct StoreRig {
    kestrow::ManualMainLoop loop;
    FakeProcessReading processes;
    FakeSystemReading system;
    RecordingNotifier notifier{loop};

    StoreRig() { quietMachine(system, processes); }

    std::unique_ptr<MonitorStore> makeStore(kestrow::UserDefaults& defaults, std::vector<std::string> arguments = {},
                                            MonitorStore::Options options = {}) {
        arguments.insert(arguments.begin(), "KestrowBrimlet");
        options.engine = std::make_unique<MonitorEngine>(processes, system);
        return std::make_unique<MonitorStore>(loop, defaults, notifier, std::move(arguments), std::move(options));
    }

    // Waits, in real time, for results relayed from the engine's thread.
    bool settle(const std::function<bool()>& done) { return loop.runUntil(done, std::chrono::seconds(5)); }
};

// The application structure's seams for a test: the rig's loop, notifier and scripted machine, one
// suite folder, no status items, panels, Dock or hot keys, and no system observers. Callers swap in
// what their test looks at.
inline BrimletPlatform testPlatform(StoreRig& rig, kestrow::UserDefaults& monitorDefaults,
                                    kestrow::UserDefaults& suiteDefaults, const kestrow::suite::SuiteFolder& folder,
                                    std::string home, IntentRouter::Environment intents) {
    MonitorStore::Options monitorOptions;
    monitorOptions.engine = std::make_unique<MonitorEngine>(rig.processes, rig.system);
    return BrimletPlatform{
        .loop = rig.loop,
        .monitorDefaults = monitorDefaults,
        .suiteDefaults = suiteDefaults,
        .notifier = rig.notifier,
        .arguments = {"KestrowBrimlet"},
        .suiteFolders = {folder},
        .home = std::move(home),
        .statusItems = {},
        .makeFloating = {},
        .makeDock = {},
        .hotKeys = nullptr,
        .observeSystem = false,
        .intents = std::move(intents),
        .monitorOptions = std::move(monitorOptions),
    };
}

}  // namespace brimlet::testing
