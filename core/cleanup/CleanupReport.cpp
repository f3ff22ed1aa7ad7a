#include "CleanupReport.hpp"

#include <algorithm>
#include <limits>
#include <string_view>

#include "base/Checked.hpp"
#include "base/Json.hpp"
#include "base/JsonCoding.hpp"
#include "core/common/ByteFormat.hpp"

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

namespace {

// Text from file names as Markdown can show it safely: ill-formed UTF-8 becomes U+FFFD, and control
// characters (a line feed in a folder name would start a forged line) become visible escapes.
std::string markdownText(std::string_view raw) {
    static const char* hex = "0123456789ABCDEF";
    const std::string text = kestrow::repairUtf8(raw);
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            out += "\\x";
            out += hex[c >> 4];
            out += hex[c & 0xF];
        } else if (c == 0xC2 && next >= 0x80 && next <= 0x9F) {  // C1 controls, U+0080 to U+009F
            out += "\\u00";
            out += hex[next >> 4];
            out += hex[next & 0xF];
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

// A path as a code span. A backquote inside would end the span early, so the fence is one
// backquote longer than the longest run inside, as Markdown allows.
std::string codeSpan(std::string_view raw) {
    const std::string text = markdownText(raw);
    std::size_t longest = 0, run = 0;
    for (const char ch : text) {
        run = ch == '`' ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    if (longest == 0) return "`" + text + "`";
    const std::string fence(longest + 1, '`');
    return fence + " " + text + " " + fence;
}

// JSON text is UTF-8: a name that is not is written with U+FFFD where its bytes are ill-formed, as
// the platform's own string conversion would show it.
std::string jsonText(const std::string& raw) { return kestrow::isValidUtf8(raw) ? raw : kestrow::repairUtf8(raw); }

}  // namespace

std::string CleanupReport::entryText(const Deleted& entry) {
    return entry.title + " \u2014 " + ByteFormat::string(entry.bytes) +
           (entry.sizeIncomplete.value_or(false) ? sizeIncompleteNote : "") + " \u2014 " +
           std::string(entry.mode.title()) + (entry.downgraded ? " (personal data is never deleted permanently)" : "");
}

std::string CleanupReport::entryText(const Skipped& entry) { return entry.title + " \u2014 " + entry.reason; }

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
    if (refusal) lines.push_back("- Refused, nothing was touched: " + markdownText(*refusal));
    lines.push_back("");
    lines.push_back("## Deleted (" + std::to_string(deleted.size()) + ")");
    lines.push_back("");
    if (deleted.empty()) lines.push_back("_Nothing._");
    for (const Deleted& d : deleted) {
        // Two trailing blanks make a Markdown line break: the path shows indented under its entry.
        lines.push_back("- " + markdownText(entryText(d)) + "  \n  " + codeSpan(d.path));
    }
    lines.push_back("");
    lines.push_back("## Skipped (" + std::to_string(skipped.size()) + ")");
    lines.push_back("");
    if (skipped.empty()) lines.push_back("_Nothing._");
    for (const Skipped& s : skipped) lines.push_back("- " + markdownText(entryText(s)) + "  \n  " + codeSpan(s.path));

    std::string text;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) text += '\n';
        text += lines[i];
    }
    text += '\n';
    return text;
}

kestrow::Result<std::string> CleanupReport::json() const {
    auto text = kestrow::writeJson(toJson(*this), {.pretty = true});
    if (text.ok()) *text += '\n';
    return text;
}

namespace {
using kestrow::field;
using Deleted = CleanupReport::Deleted;
using Skipped = CleanupReport::Skipped;

// Texts taken from the file system are repaired on the way out only; reading back keeps what was written.
constexpr auto deletedFields = std::tuple{
    field("title", &Deleted::title, jsonText), field("path", &Deleted::path, jsonText),
    field("bytes", &Deleted::bytes),           field("mode", &Deleted::mode),
    field("downgraded", &Deleted::downgraded), field("sizeIncomplete", &Deleted::sizeIncomplete),
};

constexpr auto skippedFields = std::tuple{
    field("title", &Skipped::title, jsonText),
    field("path", &Skipped::path, jsonText),
    field("reason", &Skipped::reason, jsonText),
};

constexpr auto reportFields = std::tuple{
    field("startedAt", &CleanupReport::startedAt),
    field("finishedAt", &CleanupReport::finishedAt),
    field("requestedMode", &CleanupReport::requestedMode),
    field("freeBefore", &CleanupReport::freeBefore),
    field("freeAfter", &CleanupReport::freeAfter),
    field("deleted", &CleanupReport::deleted),
    field("skipped", &CleanupReport::skipped),
    field("cancelled", &CleanupReport::cancelled),
    field("refusal", &CleanupReport::refusal, jsonText),
};
}  // namespace

using kestrow::decodeFields;
using kestrow::encodeFields;

JsonValue toJson(const Deleted& v) { return encodeFields(v, deletedFields); }
bool fromJson(const JsonValue& json, Deleted& v) { return decodeFields(json, v, deletedFields); }

JsonValue toJson(const Skipped& v) { return encodeFields(v, skippedFields); }
bool fromJson(const JsonValue& json, Skipped& v) { return decodeFields(json, v, skippedFields); }

JsonValue toJson(const CleanupReport& v) { return encodeFields(v, reportFields); }
bool fromJson(const JsonValue& json, CleanupReport& v) { return decodeFields(json, v, reportFields); }

}  // namespace brimlet
