// The intents' C interface over a real application structure: answers from the store or a reading
// of their own, the fixed failures with no application, a reading that overruns its time, and the
// cleanup open with its request time.
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "app/desktop/IntentBridge.hpp"
#include "app/startup/BrimletApplication.hpp"
#include "core/intents/IntentAnswers.hpp"
#include "tests/app/AppTestSupport.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

using namespace std::chrono_literals;

using kestrow::InMemoryUserDefaults;
using kestrow::testing::TempFolder;
using testing::StoreRig;

constexpr std::uint64_t GiB = 1ULL << 30;

// A machine whose reading waits until the test lets it go. It lives to the end of the process: the
// bridge lets an overrunning reading finish on a thread nobody joins.
struct GatedSystemReading final : testing::FakeSystemReading {
    std::promise<void> gate;
    std::shared_future<void> opened = gate.get_future().share();
    void beginSample() override { opened.wait(); }
};
struct GatedMachine {
    testing::FakeProcessReading processes;
    GatedSystemReading system;
};

struct Answer {
    BrimletIntentStatus status;
    int percent;
    std::string dialog;
    std::vector<std::string> names;
};

// Copies the C answer into values and frees it, as the Swift side does.
Answer take(BrimletIntentAnswer* answer) {
    EXPECT_NE(answer, nullptr);
    EXPECT_NE(answer->dialog, nullptr);
    Answer copy{answer->status, answer->percent, answer->dialog, {}};
    for (std::size_t i = 0; i < answer->nameCount; ++i) copy.names.emplace_back(answer->names[i]);
    brimlet_intent_free_answer(answer);
    return copy;
}

struct BridgeRig : ::testing::Test {
    TempFolder temp;
    StoreRig rig;
    InMemoryUserDefaults monitorDefaults, suiteDefaults;
    // The machine a new engine of the intents reads: 12 of 16 GiB in use, one application.
    testing::FakeProcessReading ownProcesses;
    testing::FakeSystemReading ownSystem;
    ProcessReading* engineProcesses = &ownProcesses;
    SystemReading* engineSystem = &ownSystem;
    kestrow::Date now{};
    std::unique_ptr<BrimletApplication> app;

    void SetUp() override {
        ownProcesses.add(9, 1 << 20, "fresh-engine");
        ownSystem.memoryCounters = MeminfoFigures{16 * GiB, 4 * GiB, 0, 0, 0, 0, 0, 0};
        ownSystem.total = 16 * GiB;
        app = std::make_unique<BrimletApplication>(testing::testPlatform(
            rig, monitorDefaults, suiteDefaults, kestrow::suite::SuiteFolder(temp / "suite"), temp / "home",
            {[this] { return rig.loop.now(); },
             [this] { return now; },
             {},
             [this] { return std::make_unique<MonitorEngine>(*engineProcesses, *engineSystem); }}));
        ASSERT_TRUE(rig.settle([&] { return app->monitor().snapshot().has_value(); }));
        now = app->monitor().snapshot()->date;
        IntentBridge::install(app.get());
    }
    void TearDown() override { IntentBridge::install(nullptr); }
};

// While the application starts or quits there is none installed: the questions still answer, from
// a reading of this machine of their own, and nothing is refused.
TEST(IntentBridge, WithoutAnApplicationTheQuestionsTakeAReadingOfTheirOwn) {
    IntentBridge::install(nullptr);
    const Answer memory = take(brimlet_intent_wait_answer(brimlet_intent_ask_memory_in_use(), 30));
    EXPECT_EQ(memory.status, BrimletIntentStatusAnswered);
    EXPECT_GE(memory.percent, 0);
    EXPECT_LE(memory.percent, 100);
    EXPECT_EQ(memory.dialog, IntentAnswers::memoryDialog(memory.percent));
    const Answer top = take(brimlet_intent_wait_answer(brimlet_intent_ask_top_memory_apps(), 30));
    EXPECT_EQ(top.status, BrimletIntentStatusAnswered);
    EXPECT_FALSE(top.names.empty());  // this test's own process at least
    EXPECT_EQ(take(brimlet_intent_wait_answer(nullptr, 5)).status, BrimletIntentStatusUnavailable);
    EXPECT_STREQ(brimlet_intent_status_text(BrimletIntentStatusUnavailable), IntentBridge::unavailableText);
    EXPECT_STREQ(brimlet_intent_status_text(BrimletIntentStatusTimedOut), IntentBridge::timedOutText);
    EXPECT_STREQ(brimlet_intent_status_text(BrimletIntentStatusAnswered), "");
}

// A cleanup open with no application yet succeeds and is kept for the application that comes.
TEST_F(BridgeRig, ACleanupOpenBeforeTheApplicationIsDeferredNotLost) {
    IntentBridge::install(nullptr);
    rig.loop.advance(3s);
    EXPECT_EQ(brimlet_intent_open_cleanup(), BrimletIntentStatusAnswered);
    EXPECT_FALSE(app->router().pendingCleanupOpen());
    IntentBridge::install(app.get());
    EXPECT_TRUE(app->router().pendingCleanupOpen());
    EXPECT_EQ(app->router().lastRequest().lastRequest, rig.loop.now());
    std::vector<std::string> opened;
    app->monitor().adoptOpenWindow([&](std::string_view id) { opened.emplace_back(id); });
    EXPECT_EQ(opened, std::vector<std::string>{"cleanup"});
    // Handed over once: the next application installed finds nothing waiting.
    IntentBridge::install(nullptr);
    IntentBridge::install(app.get());
    EXPECT_FALSE(app->router().pendingCleanupOpen());
}

TEST_F(BridgeRig, MemoryIsAlwaysANewReadingAndTopAppsComeFromAFreshSnapshot) {
    // The store's machine has half its memory in use; the question reads its own engine's figures.
    const Answer memory = take(brimlet_intent_wait_answer(brimlet_intent_ask_memory_in_use(), 5));
    EXPECT_EQ(memory.status, BrimletIntentStatusAnswered);
    EXPECT_EQ(memory.percent, 75);
    EXPECT_EQ(memory.dialog, "Memory in use: 75%");
    EXPECT_TRUE(memory.names.empty());

    struct Case {
        std::chrono::milliseconds age;
        std::vector<std::string> names;
        std::string dialog;
    };
    const std::vector<Case> cases = {
        {std::chrono::milliseconds(1000), {"init", "editor"}, "Most memory: init 300 MB, editor 200 MB"},
        {std::chrono::milliseconds(2100), {"fresh-engine"}, "Most memory: fresh-engine 1 MB"},
    };
    const kestrow::Date taken = now;
    for (const Case& c : cases) {
        now = taken + c.age;
        const Answer top = take(brimlet_intent_wait_answer(brimlet_intent_ask_top_memory_apps(), 5));
        EXPECT_EQ(top.status, BrimletIntentStatusAnswered) << c.age.count();
        EXPECT_EQ(top.names, c.names) << c.age.count();
        EXPECT_EQ(top.dialog, c.dialog) << c.age.count();
        EXPECT_EQ(top.percent, 0);
    }
}

TEST_F(BridgeRig, AReadingThatOverrunsItsTimeAnswersTimedOutAtOnce) {
    static GatedMachine& gated = *new GatedMachine;  // outlives the abandoned reading
    engineProcesses = &gated.processes;
    engineSystem = &gated.system;
    const Answer answer = take(brimlet_intent_wait_answer(brimlet_intent_ask_memory_in_use(), 0.05));
    gated.system.gate.set_value();
    EXPECT_EQ(answer.status, BrimletIntentStatusTimedOut);
    EXPECT_EQ(answer.dialog, IntentBridge::timedOutText);
}

TEST_F(BridgeRig, TheCleanupOpenRecordsItsRequestAndWaitsForTheOpener) {
    rig.loop.advance(3s);
    EXPECT_EQ(brimlet_intent_open_cleanup(), BrimletIntentStatusAnswered);
    const kestrow::ContinuousTime requestedAt = rig.loop.now();
    EXPECT_EQ(app->router().lastRequest().lastRequest, requestedAt);
    EXPECT_TRUE(app->router().pendingCleanupOpen());

    std::vector<std::string> opened;
    app->monitor().adoptOpenWindow([&](std::string_view id) { opened.emplace_back(id); });
    EXPECT_EQ(opened, std::vector<std::string>{"cleanup"});
    EXPECT_EQ(brimlet_intent_open_cleanup(), BrimletIntentStatusAnswered);
    EXPECT_EQ(opened, (std::vector<std::string>{"cleanup", "cleanup"}));
}

}  // namespace
}  // namespace brimlet
