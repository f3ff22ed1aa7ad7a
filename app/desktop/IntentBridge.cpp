#include "app/desktop/IntentBridge.hpp"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <variant>
#include <vector>

#include "app/startup/BrimletApplication.hpp"
#include "base/Log.hpp"
#include "base/Time.hpp"
#include "core/intents/IntentAnswers.hpp"

// Opaque to C and Swift: the reading a question waits for. An empty reading means there was no
// application to ask.
struct BrimletIntentQuestion {
    std::variant<std::monostate, std::future<brimlet::SystemGlance>, std::future<brimlet::MonitorSnapshot>> reading;
};

namespace brimlet {
namespace {

constexpr std::string_view logCategory = "intents";
constexpr std::size_t topAppsLimit = 3;

BrimletApplication* installedApplication = nullptr;  // main thread only
// A cleanup open that came while no application was installed (starting or quitting): handed to the
// next application installed, not lost.
bool cleanupOpenDeferred = false;  // main thread only

// The questions' router while no application is installed: no store to read, so a new engine
// answers each question. It lives for the process.
IntentRouter& standaloneRouter() {
    static IntentRouter* router = new IntentRouter();
    return *router;
}

// The C side frees what it gets with free(), so everything it gets comes from malloc. Running out
// of memory here is as fatal as anywhere else in the process.
void* allocate(std::size_t size) {
    void* memory = std::calloc(1, size == 0 ? 1 : size);
    if (!memory) std::abort();
    return memory;
}

char* copyText(std::string_view text) {
    char* copy = static_cast<char*>(allocate(text.size() + 1));
    std::memcpy(copy, text.data(), text.size());
    return copy;
}

BrimletIntentAnswer* failure(BrimletIntentStatus status, const char* text) {
    auto* answer = static_cast<BrimletIntentAnswer*>(allocate(sizeof(BrimletIntentAnswer)));
    answer->status = status;
    answer->dialog = copyText(text);
    return answer;
}

BrimletIntentAnswer* memoryAnswer(const SystemGlance& glance) {
    auto* answer = static_cast<BrimletIntentAnswer*>(allocate(sizeof(BrimletIntentAnswer)));
    answer->status = BrimletIntentStatusAnswered;
    answer->percent =
        IntentAnswers::memoryPercent(IntentAnswers::memoryFraction(glance.memoryUsed, glance.memoryTotal));
    answer->dialog = copyText(IntentAnswers::memoryDialog(answer->percent));
    return answer;
}

BrimletIntentAnswer* topAppsAnswer(const MonitorSnapshot& snapshot) {
    const std::vector<AppGroup> groups = snapshot.topApps(AppMetric::memory, topAppsLimit);
    const std::vector<std::string> names = IntentAnswers::topAppNames(groups);
    auto* answer = static_cast<BrimletIntentAnswer*>(allocate(sizeof(BrimletIntentAnswer)));
    answer->status = BrimletIntentStatusAnswered;
    answer->dialog = copyText(IntentAnswers::topAppsDialog(groups));
    if (!names.empty()) {
        answer->names = static_cast<char**>(allocate(names.size() * sizeof(char*)));
        for (const std::string& name : names) answer->names[answer->nameCount++] = copyText(name);
    }
    return answer;
}

// The reading within the time allowed, or none. A future from std::async waits for its work when it
// is destroyed, so one that is still running is handed to a thread of its own to finish there:
// the caller gets its "timed out" now, not when the reading ends.
template <typename T>
std::optional<T> awaitReading(std::future<T>& reading, kestrow::Seconds timeout) {
    if (reading.wait_for(timeout) == std::future_status::ready) return reading.get();
    std::thread([abandoned = std::move(reading)]() mutable { abandoned.wait(); }).detach();
    kestrow::log::error(logCategory, "An intent's reading did not finish in time");
    return std::nullopt;
}

BrimletIntentQuestion* ask(auto makeReading) {
    auto* question = new BrimletIntentQuestion;
    question->reading = makeReading(installedApplication ? installedApplication->router() : standaloneRouter());
    return question;
}

}  // namespace

void IntentBridge::install(BrimletApplication* application) {
    installedApplication = application;
    if (application && cleanupOpenDeferred) {
        cleanupOpenDeferred = false;
        application->router().openCleanup();
    }
}

}  // namespace brimlet

using brimlet::IntentBridge::timedOutText;
using brimlet::IntentBridge::unavailableText;

extern "C" {

BrimletIntentQuestion* brimlet_intent_ask_memory_in_use(void) {
    return brimlet::ask([](brimlet::IntentRouter& router) { return router.memoryReading(); });
}

BrimletIntentQuestion* brimlet_intent_ask_top_memory_apps(void) {
    return brimlet::ask([](brimlet::IntentRouter& router) { return router.topAppsSnapshot(); });
}

BrimletIntentAnswer* brimlet_intent_wait_answer(BrimletIntentQuestion* question, double timeoutSeconds) {
    if (!question) return brimlet::failure(BrimletIntentStatusUnavailable, unavailableText);
    BrimletIntentAnswer* answer = std::visit(
        [timeoutSeconds]<typename Reading>(Reading& reading) -> BrimletIntentAnswer* {
            if constexpr (std::is_same_v<Reading, std::monostate>) {
                return brimlet::failure(BrimletIntentStatusUnavailable, unavailableText);
            } else {
                // The caller's number of seconds, of any value: what a wait cannot take counts as none.
                const kestrow::Seconds timeout(std::isfinite(timeoutSeconds) && timeoutSeconds > 0 ? timeoutSeconds
                                                                                                   : 0);
                auto value = brimlet::awaitReading(reading, timeout);
                if (!value) return brimlet::failure(BrimletIntentStatusTimedOut, timedOutText);
                if constexpr (std::is_same_v<Reading, std::future<brimlet::SystemGlance>>)
                    return brimlet::memoryAnswer(*value);
                else return brimlet::topAppsAnswer(*value);
            }
        },
        question->reading);
    delete question;
    return answer;
}

void brimlet_intent_free_answer(BrimletIntentAnswer* answer) {
    if (!answer) return;
    for (std::size_t i = 0; i < answer->nameCount; ++i) std::free(answer->names[i]);
    std::free(answer->names);
    std::free(answer->dialog);
    std::free(answer);
}

BrimletIntentStatus brimlet_intent_open_cleanup(void) {
    if (!brimlet::installedApplication) {
        kestrow::log::info(brimlet::logCategory,
                           "The cleanup intent arrived before the application: it opens once there is one");
        brimlet::cleanupOpenDeferred = true;
        return BrimletIntentStatusAnswered;
    }
    brimlet::installedApplication->router().openCleanup();
    return BrimletIntentStatusAnswered;
}

const char* brimlet_intent_status_text(BrimletIntentStatus status) {
    switch (status) {
    case BrimletIntentStatusAnswered: return "";
    case BrimletIntentStatusUnavailable: return unavailableText;
    case BrimletIntentStatusTimedOut: return timedOutText;
    }
    return unavailableText;
}

}  // extern "C"
