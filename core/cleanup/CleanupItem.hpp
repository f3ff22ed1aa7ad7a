// The unit of cleanup, and the fixed catalog of developer caches that rebuild themselves.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Pinning.hpp"
#include "base/Json.hpp"
#include "base/RawValueEnum.hpp"

namespace brimlet {

using kestrow::JsonValue;

struct CleanupKind : kestrow::RawValueEnum<CleanupKind> {
    enum Value : int { regenerable, personal };
    static constexpr std::array<std::string_view, 2> rawValues{"regenerable", "personal"};
    Value value = regenerable;
    constexpr CleanupKind() = default;
    constexpr CleanupKind(Value v) : value(v) {}
};

struct CleanupAction : kestrow::RawValueEnum<CleanupAction> {
    enum Value : int { deletePath, deleteUnavailableSimulators };
    static constexpr std::array<std::string_view, 2> rawValues{"deletePath", "deleteUnavailableSimulators"};
    Value value = deletePath;
    constexpr CleanupAction() = default;
    constexpr CleanupAction(Value v) : value(v) {}
};

struct DeleteMode : kestrow::RawValueEnum<DeleteMode> {
    enum Value : int { trash, permanent };
    static constexpr std::array<std::string_view, 2> rawValues{"trash", "permanent"};
    Value value = trash;
    constexpr DeleteMode() = default;
    constexpr DeleteMode(Value v) : value(v) {}
    std::string_view title() const { return value == trash ? "Move to Trash" : "Delete permanently"; }
};

struct CleanupItem {
    std::string id;
    std::string title;
    std::string detail;
    std::string url;  // absolute path of the folder or file concerned
    CleanupKind kind;
    CleanupAction action;
    std::optional<std::uint64_t> size;
    std::optional<std::string> blockedReason;
    std::optional<std::string> note;
    std::optional<bool> isActive;
    std::optional<std::string> requiresExisting;
    // Device and inode of the item when it was measured; the cleaner acts only on that same file.
    // Not part of the item's encoded form.
    std::optional<FileIdentity> measuredIdentity;

    // Presence, not content, of a blocked reason decides.
    bool isSelectable() const { return !blockedReason.has_value(); }
    bool operator==(const CleanupItem&) const = default;
};

JsonValue toJson(const CleanupItem& item);

struct CleanupCatalog {
    struct Entry {
        std::string id;
        std::string title;
        std::string detail;
        std::string relativePath;
    };

    static constexpr const char* simulatorDevicesRelativePath = "Library/Developer/CoreSimulator/Devices";

    std::string home;

    explicit CleanupCatalog(std::string home) : home(std::move(home)) {}

    // The caches of this platform, in the order items are offered.
    static const std::vector<Entry>& entries();
    // The macOS table, and the Linux one: the same tools, where Linux keeps their caches.
    static const std::vector<Entry>& macEntries();
    static const std::vector<Entry>& linuxEntries();
    static const std::vector<std::string>& keptRelativePaths();

    // Items for the entries that exist now, then the simulator item when the devices folder, the
    // developer directory and its simulator platform all exist.
    std::vector<CleanupItem>
    regenerableItems(const std::function<std::optional<std::string>()>& developerDirectory) const;
    std::vector<CleanupItem> regenerableItems() const;
    std::vector<std::string> keptURLs() const;
};

// The active developer directory (xcode-select); none where there is none.
std::optional<std::string> currentDeveloperDirectory();

}  // namespace brimlet
