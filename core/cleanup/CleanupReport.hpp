// The record of one cleanup run, and its Markdown and JSON forms.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CleanupItem.hpp"
#include "base/IsoDate.hpp"
#include "base/Status.hpp"

namespace brimlet {

struct CleanupReport {
    static constexpr const char* trashNote = "Space is freed when you empty the Trash.";
    // After the size of an item that was moved whole although part of it could not be measured.
    static constexpr const char* sizeIncompleteNote = " or more (part of it could not be read)";

    struct Deleted {
        std::string title;
        std::string path;
        std::uint64_t bytes = 0;
        DeleteMode mode;
        bool downgraded = false;  // asked for permanent, went to the Trash: personal data never goes for good
        // Set (true) when part of the item could not be read to measure it: more than `bytes` went.
        std::optional<bool> sizeIncomplete;
        bool operator==(const Deleted&) const = default;
    };
    // Why an item was left: kept back on purpose before anything ran (a safety rule, the user's
    // situation), or failed while running (the file operation or the simulator tool). The cause is
    // the program's own; the exported forms carry the reason's text alone.
    enum class SkipCause { keptBack, failed };
    struct Skipped {
        std::string title;
        std::string path;
        std::string reason;
        SkipCause cause = SkipCause::keptBack;
        bool operator==(const Skipped&) const = default;
    };

    kestrow::Date startedAt{};
    kestrow::Date finishedAt{};
    DeleteMode requestedMode;
    std::uint64_t freeBefore = 0;
    std::uint64_t freeAfter = 0;
    std::vector<Deleted> deleted;
    std::vector<Skipped> skipped;
    bool cancelled = false;
    std::optional<std::string> refusal;  // the whole run was refused up front; nothing was touched

    std::uint64_t bytesDeleted() const;
    std::uint64_t bytesInTrash() const;
    std::int64_t freedNow() const;

    // One entry as a line of text, without its path: "npm cache — 1.2 GB — Move to Trash" and
    // "npm cache — <reason>". The Markdown form and the screens show the same words.
    static std::string entryText(const Deleted& entry);
    static std::string entryText(const Skipped& entry);

    std::string markdown() const;
    // Pretty JSON with sorted keys; none only if a value cannot be encoded.
    [[nodiscard]] kestrow::Result<std::string> json() const;
    bool operator==(const CleanupReport&) const = default;
};

JsonValue toJson(const CleanupReport::Deleted& value);
JsonValue toJson(const CleanupReport::Skipped& value);
JsonValue toJson(const CleanupReport& value);
bool fromJson(const JsonValue& json, CleanupReport::Deleted& out);
bool fromJson(const JsonValue& json, CleanupReport::Skipped& out);
bool fromJson(const JsonValue& json, CleanupReport& out);

}  // namespace brimlet
