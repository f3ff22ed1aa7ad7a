#include "CleanupReport.hpp"

#include <limits>

#include "base/Checked.hpp"
#include "base/JsonCoding.hpp"
#include "core/monitoring/ByteFormat.hpp"

namespace brimlet {

std::uint64_t CleanupReport::bytesDeleted() const {
    std::uint64_t sum = 0;
    for (const Deleted& d : deleted) sum = kestrow::checkedAdd(sum, d.bytes, "deleted size overflow");
    return sum;
}

std::uint64_t CleanupReport::bytesInTrash() const {
    std::uint64_t sum = 0;
    for (const Deleted& d : deleted)
        if (d.mode == DeleteMode::trash) sum = kestrow::checkedAdd(sum, d.bytes, "trashed size overflow");
    return sum;
}

std::int64_t CleanupReport::freedNow() const {
    constexpr auto limit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (freeBefore > limit || freeAfter > limit) kestrow::fatalError("free space beyond 63 bits");
    return static_cast<std::int64_t>(freeAfter) - static_cast<std::int64_t>(freeBefore);
}

std::string CleanupReport::markdown() const {
    using ByteFormat::string;
    std::vector<std::string> lines;
    lines.push_back("# Kestrow Brimlet \u2014 Cleanup report");
    lines.push_back("");
    // The report shows whole seconds, the usual ISO 8601 form.
    lines.push_back("- Date: " + kestrow::formatIsoDate(std::chrono::floor<std::chrono::seconds>(finishedAt)));
    lines.push_back("- Mode: " + std::string(requestedMode.title()));
    lines.push_back("- Free space before: " + string(freeBefore));
    lines.push_back("- Free space after: " + string(freeAfter));
    lines.push_back("- Freed now: " + (freeAfter >= freeBefore ? string(freeAfter - freeBefore)
                                                              : "\u2212" + string(freeBefore - freeAfter)));
    if (const std::uint64_t trashed = bytesInTrash(); trashed != 0)
        lines.push_back("- In Trash: " + string(trashed) + ". " + trashNote);
    if (cancelled) lines.push_back("- Cancelled before all items ran.");
    if (refusal) lines.push_back("- Refused, nothing was touched: " + *refusal);
    lines.push_back("");
    lines.push_back("## Deleted (" + std::to_string(deleted.size()) + ")");
    lines.push_back("");
    if (deleted.empty()) lines.push_back("_Nothing._");
    for (const Deleted& d : deleted) {
        // Two trailing blanks make a Markdown line break: the path shows indented under its entry.
        lines.push_back("- " + d.title + " \u2014 " + string(d.bytes) + " \u2014 " + std::string(d.mode.title()) +
                        (d.downgraded ? " (personal data is never deleted permanently)" : "") + "  \n  `" + d.path +
                        "`");
    }
    lines.push_back("");
    lines.push_back("## Skipped (" + std::to_string(skipped.size()) + ")");
    lines.push_back("");
    if (skipped.empty()) lines.push_back("_Nothing._");
    for (const Skipped& s : skipped) lines.push_back("- " + s.title + " \u2014 " + s.reason + "  \n  `" + s.path + "`");

    std::string text;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) text += '\n';
        text += lines[i];
    }
    text += '\n';
    return text;
}

std::optional<std::string> CleanupReport::json() const {
    auto text = kestrow::writeJson(toJson(*this), {.pretty = true});
    if (text) *text += '\n';
    return text;
}

JsonValue toJson(const CleanupReport::Deleted& v) {
    return kestrow::JsonObjectBuilder()
        .set("title", v.title)
        .set("path", v.path)
        .set("bytes", v.bytes)
        .set("mode", v.mode)
        .set("downgraded", v.downgraded)
        .build();
}

JsonValue toJson(const CleanupReport::Skipped& v) {
    return kestrow::JsonObjectBuilder().set("title", v.title).set("path", v.path).set("reason", v.reason).build();
}

JsonValue toJson(const CleanupReport& v) {
    return kestrow::JsonObjectBuilder()
        .set("startedAt", v.startedAt)
        .set("finishedAt", v.finishedAt)
        .set("requestedMode", v.requestedMode)
        .set("freeBefore", v.freeBefore)
        .set("freeAfter", v.freeAfter)
        .set("deleted", v.deleted)
        .set("skipped", v.skipped)
        .set("cancelled", v.cancelled)
        .set("refusal", v.refusal)
        .build();
}

bool fromJson(const JsonValue& json, CleanupReport::Deleted& v) {
    return kestrow::JsonObjectReader(json)
        .get("title", v.title)
        .get("path", v.path)
        .get("bytes", v.bytes)
        .get("mode", v.mode)
        .get("downgraded", v.downgraded)
        .ok();
}

bool fromJson(const JsonValue& json, CleanupReport::Skipped& v) {
    return kestrow::JsonObjectReader(json).get("title", v.title).get("path", v.path).get("reason", v.reason).ok();
}

bool fromJson(const JsonValue& json, CleanupReport& v) {
    return kestrow::JsonObjectReader(json)
        .get("startedAt", v.startedAt)
        .get("finishedAt", v.finishedAt)
        .get("requestedMode", v.requestedMode)
        .get("freeBefore", v.freeBefore)
        .get("freeAfter", v.freeAfter)
        .get("deleted", v.deleted)
        .get("skipped", v.skipped)
        .get("cancelled", v.cancelled)
        .get("refusal", v.refusal)
        .ok();
}

}  // namespace brimlet
