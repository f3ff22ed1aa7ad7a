// A suite member for tests that need real processes: runs a participant on the system's main loop
// against the given suite folder and prints every change of its state as one line:
//   ready · active 0|1 · host 0|1 · rows <app>=running|notRunning … · stopped
// Usage: suite_member <app id> <suite folder> [ttl]. SIGTERM or SIGINT ends it cleanly; it also ends
// when its parent goes away, so a crashed test leaves nothing behind.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/MainLoop.hpp"
#include "base/UserDefaults.hpp"
#include "suite/ui/SuiteParticipant.hpp"

using namespace kestrow;
using namespace kestrow::suite;

namespace {

void say(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

class QuietItem final : public SuiteStatusItem {
public:
    bool isVisible() const override { return true; }
    void update(const SuiteValues&, GlanceLevel) override {}
    void withdraw() override {}
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: suite_member <app id> <suite folder> [ttl]\n", stderr);
        return 2;
    }
    const std::optional<SuiteApp> app = SuiteApp::fromRawValue(argv[1]);
    if (!app) {
        std::fprintf(stderr, "suite_member: unknown app id %s\n", argv[1]);
        return 2;
    }
    const std::int64_t ttl = argc > 3 ? std::atoll(argv[3]) : 3;

    // First, before the host lock starts its thread: the loop blocks SIGTERM for every thread.
    std::unique_ptr<MainLoop> loop = makeSystemMainLoop(true);
    InMemoryUserDefaults defaults;
    SuiteStatusItemFactory items;
    items.make = [](SuiteHost&) { return std::make_unique<QuietItem>(); };

    SuiteParticipant participant(*app, {SuiteFolder(argv[2])}, defaults, items, *loop, {});
    // The state at construction first, then every change.
    auto report = [&participant](SuiteParticipant::Property property) {
        switch (property) {
        case SuiteParticipant::Property::isActive:
            return say(std::string("active ") + (participant.isActive() ? "1" : "0"));
        case SuiteParticipant::Property::isHost: return say(std::string("host ") + (participant.isHost() ? "1" : "0"));
        case SuiteParticipant::Property::rows: {
            std::string line = "rows";
            for (const SuiteRow& row : participant.rows())
                line += " " + std::string(row.app().rawValue()) + (row.isRunning() ? "=running" : "=notRunning");
            return say(line);
        }
        default: return;
        }
    };
    for (auto property :
         {SuiteParticipant::Property::isActive, SuiteParticipant::Property::isHost, SuiteParticipant::Property::rows})
        report(property);
    participant.onChange(report);
    participant.publish(GlanceLevel::ok, {GlanceMetric{"load", "Load", 12.5, "%", GlanceLevel::ok}}, ttl);

    const pid_t parent = ::getppid();
    auto orphanCheck = loop->repeat(std::chrono::milliseconds(500), std::chrono::milliseconds(100), [&] {
        if (::getppid() != parent) loop->stop();
    });
    say("ready");
    loop->run();
    participant.shutdown();
    say("stopped");
    return 0;
}
