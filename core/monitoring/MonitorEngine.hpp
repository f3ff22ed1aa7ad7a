// Turns the state of the machine into snapshots. Every call runs on the engine's own serial
// executor, one at a time, so the samplers' remembered counters are never touched concurrently.
// Calls return futures: a caller on the main thread can wait or poll as it likes.
#pragma once

#include <future>
#include <memory>

#include "MonitorTypes.hpp"
#include "ProcessSampler.hpp"
#include "SystemSampler.hpp"
#include "base/SerialExecutor.hpp"

namespace brimlet {

class MonitorEngine {
public:
    // The live readers of this machine.
    MonitorEngine();
    // Readers chosen by the caller (tests); they must outlive the engine.
    MonitorEngine(ProcessReading& processes, SystemReading& system);

    std::future<MonitorSnapshot> snapshot();
    std::future<SystemGlance> glance();
    // A snapshot or a glance handed to `then` on `loop`'s thread, with no thread waiting for it.
    template <typename Then>
    void snapshot(kestrow::MainLoop& loop, Then then) {
        executor_.submitReplying([this] { return assemble(processes_, system_); }, loop, std::move(then));
    }
    template <typename Then>
    void glance(kestrow::MainLoop& loop, Then then) {
        executor_.submitReplying([this] { return system_.glance(); }, loop, std::move(then));
    }

    // The sampling steps of one snapshot, for callers already serialising their calls.
    static MonitorSnapshot assemble(ProcessSampler& processes, SystemSampler& system);

private:
    ProcessSampler processes_;
    SystemSampler system_;
    kestrow::SerialExecutor executor_{"monitor-engine"};  // last, so it stops before the samplers go
};

}  // namespace brimlet
