#pragma once

#include <optional>
#include <string>

#include "base/Status.hpp"
#include "core/monitoring/MonitorTypes.hpp"

namespace brimlet {

namespace SnapshotCommand {
// Primes a fresh engine, waits one second on the monotonic clock, takes the snapshot it prints
// and writes it to standard output as pretty JSON with sorted keys. Always returns normally.
void run();
// The text written for a snapshot; none when it cannot be encoded (then nothing is printed).
[[nodiscard]] kestrow::Result<std::string> encode(const MonitorSnapshot& snapshot);
}  // namespace SnapshotCommand

}  // namespace brimlet
