#include "app/commands/SnapshotCommand.hpp"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "base/Log.hpp"
#include "core/monitoring/MonitorEngine.hpp"

namespace brimlet {

kestrow::Result<std::string> SnapshotCommand::encode(const MonitorSnapshot& snapshot) {
    auto text = kestrow::writeJson(toJson(snapshot), {.pretty = true, .escapeSlashes = false});
    if (text.ok()) *text += '\n';
    return text;
}

void SnapshotCommand::run() {
    MonitorEngine engine;
    engine.snapshot().get();  // primes the counters, so the printed rates cover a real interval
    // steady_clock is monotonic; sleep_for measures on it, never on the wall clock.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const MonitorSnapshot snapshot = engine.snapshot().get();
    const auto text = encode(snapshot);
    if (text.failed()) {
        // Nothing is printed and the command still succeeds; the log says why the output is empty.
        kestrow::log::error("snapshot", "cannot encode the snapshot as JSON");
        return;
    }
    std::string_view rest(*text);
    while (!rest.empty()) {
        const ssize_t n = ::write(STDOUT_FILENO, rest.data(), rest.size());
        if (n <= 0) break;
        rest.remove_prefix(static_cast<std::size_t>(n));
    }
}

}  // namespace brimlet
