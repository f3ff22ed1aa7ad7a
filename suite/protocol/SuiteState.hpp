// Settings shared by every suite member, and the host's view of the suite: which members run,
// whether the suite is active, whether a host is speaking, and what the shared item shows.
#pragma once

#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "GlanceRecord.hpp"
#include "SuiteFolder.hpp"
#include "base/Time.hpp"

namespace kestrow::suite {

// Keeps integers and doubles apart and every key intact, so settings a newer member stored survive
// our read and write.
using JSONValue = kestrow::JsonValue;

struct SuiteSettings {
    static constexpr std::size_t maxMenuBarValues = 2;
    static constexpr std::size_t readLimit = 65536;

    std::optional<std::vector<MetricRef>> menuBarValues;  // none: chosen automatically
    bool floatingVisible = false;
    bool floatingExpanded = false;
    std::optional<std::pair<double, double>> floatingTopLeft;
    std::optional<double> statusItemPosition;
    std::map<std::string, JSONValue> unknown;

    // Never fails: anything unreadable reads as the defaults.
    [[nodiscard]] static SuiteSettings decode(std::string_view bytes);
    [[nodiscard]] std::string encode() const;
    [[nodiscard]] static SuiteSettings read(const SuiteFolder& folder);
    kestrow::Status write(const SuiteFolder& folder) const;

    // A read that says whether the file could be read: a missing file reads as the defaults and may
    // be written; any other fault (a link, another user's file, more than readLimit bytes, not a JSON
    // object) leaves `unreadable` with the reason, and such a file must not be written over, since
    // it may hold what other members stored.
    struct Loaded;
    [[nodiscard]] static Loaded load(const OpenSuiteFolder& folder);
    // Replaces the file atomically, unless the file there now cannot be read (see load): it is then
    // kept as it is and the failure says why.
    kestrow::Status write(const OpenSuiteFolder& folder) const;
    bool operator==(const SuiteSettings&) const = default;
};

struct SuiteSettings::Loaded {
    SuiteSettings settings;
    std::optional<std::string> unreadable;
};

// A record's age on the reader's own clock. Each member stamps its record with its own wall clock
// (`at`); when one member's clock is an hour off, every reader would judge its records stale (an
// hour old, or an hour ahead), and a member whose clock ran ahead and then died would stay fresh
// for that hour. So the reader also notes, on a clock of its own that never jumps (the loop's
// continuous clock), when it first saw each record change. The rule:
//   - a running record is fresh when its `at` says so (at − 2 ≤ now ≤ at + ttl on the wall clock),
//     or when the reader saw it change less than its ttl ago (vouched);
//   - a record seen once and never again changing is judged by its `at` alone, so a file left by a
//     member long gone never comes back to life when a reader starts.
// A member whose clock is off therefore counts while it keeps writing (it rewrites at half its ttl)
// and drops out ttl seconds after its last write; a skew of any size in either direction neither
// hides it nor keeps it alive.
struct RecordSightings {
    struct Sighting {
        GlanceRecord record;
        std::optional<ContinuousTime> changedAt;  // none until seen to change
    };
    std::map<SuiteApp, Sighting> seen;

    // Notes what the folder holds at `readerNow`; members without a record are forgotten.
    void observe(const std::map<SuiteApp, GlanceRecord>& records, ContinuousTime readerNow);
    // The members whose running record changed less than its ttl before `readerNow`.
    [[nodiscard]] std::set<SuiteApp> vouched(ContinuousTime readerNow) const;
};

struct SuiteRow {
    std::variant<GlanceRecord, SuiteApp> value;  // running with its record, or not running

    bool isRunning() const { return std::holds_alternative<GlanceRecord>(value); }
    const GlanceRecord* record() const { return std::get_if<GlanceRecord>(&value); }
    SuiteApp app() const { return isRunning() ? std::get<GlanceRecord>(value).app : std::get<SuiteApp>(value); }
    bool operator==(const SuiteRow&) const = default;
};

struct SuiteStateMachine {
    static constexpr Seconds offDelay{10};
    static constexpr Seconds wakeGrace{10};
    static constexpr Seconds hostGrace{5};
    static constexpr Seconds notRunningShown{60};

    // Instants on this machine's wall clock, the clock records' `at` is compared with.
    bool isActive = false;
    std::optional<WallTime> belowSince;
    std::optional<WallTime> wakeUntil;  // none: no wake seen
    std::optional<WallTime> activeSince;
    std::optional<WallTime> hostSeenAt;
    std::map<SuiteApp, GlanceRecord> latest;
    std::map<SuiteApp, WallTime> lastFreshAt;
    WallTime now{};
    // Members whose record the reader saw change within its ttl (RecordSightings): they count as
    // fresh even when their `at` disagrees with this machine's clock.
    std::set<SuiteApp> vouched;

    void update(const std::map<SuiteApp, GlanceRecord>& records, WallTime now, std::set<SuiteApp> vouched = {});
    void didWake(WallTime now);
    // The wall clock jumped by `jump` (set back: negative) while no time passed: every time kept here
    // moves along with it, so the off delay, the host grace and the rows' minute keep their length
    // instead of lasting an hour longer, or ending at once.
    void clockChanged(Seconds jump);
    // Fresh by its `at` (GlanceRecord::isFresh), or running and vouched for.
    [[nodiscard]] bool isFresh(const GlanceRecord& record) const;
    [[nodiscard]] bool hostMissing() const;
    [[nodiscard]] bool showsOwnIcon(bool optIn) const;
    [[nodiscard]] std::vector<SuiteRow> rows() const;
    [[nodiscard]] GlanceLevel worstLevel() const;
    [[nodiscard]] std::vector<std::pair<MetricRef, GlanceMetric>>
    menuBarValues(const std::optional<std::vector<MetricRef>>& chosen) const;
};

}  // namespace kestrow::suite
