#include "CleanupItem.hpp"

#include <sys/stat.h>

#include "base/JsonCoding.hpp"

namespace brimlet {

namespace {
using kestrow::field;

// Items travel one way, to the interface that lists them; nothing reads them back.
constexpr auto cleanupItemFields = std::tuple{
    field("id", &CleanupItem::id),
    field("title", &CleanupItem::title),
    field("detail", &CleanupItem::detail),
    field("url", &CleanupItem::url),
    field("kind", &CleanupItem::kind),
    field("action", &CleanupItem::action),
    field("size", &CleanupItem::size),
    field("blockedReason", &CleanupItem::blockedReason),
    field("note", &CleanupItem::note),
    field("isActive", &CleanupItem::isActive),
    field("requiresExisting", &CleanupItem::requiresExisting),
};
}  // namespace

JsonValue toJson(const CleanupItem& item) { return kestrow::encodeFields(item, cleanupItemFields); }

const std::vector<CleanupCatalog::Entry>& CleanupCatalog::macEntries() {
    static const std::vector<Entry> table = {
        {"npm-cache", "npm cache", "Package tarballs npm re-downloads on demand.", ".npm/_cacache"},
        {"npm-npx", "npx cache", "Packages fetched by npx.", ".npm/_npx"},
        {"bun-cache", "Bun cache", "Bun's global install cache.", ".bun/install/cache"},
        {"yarn-cache", "Yarn cache", "Yarn's offline package cache.", "Library/Caches/Yarn"},
        {"uv-cache", "uv cache", "Python packages cached by uv.", ".cache/uv"},
        {"pip-cache", "pip cache", "Python wheels cached by pip.", "Library/Caches/pip"},
        {"xcode-derived-data", "Xcode DerivedData", "Build products and indexes; Xcode rebuilds them.",
         "Library/Developer/Xcode/DerivedData"},
        {"swiftpm-cache", "SwiftPM cache", "Swift package checkouts cached by SwiftPM.",
         "Library/Caches/org.swift.swiftpm"},
    };
    return table;
}

// On Linux the tools follow the XDG cache folder; Xcode does not exist there.
const std::vector<CleanupCatalog::Entry>& CleanupCatalog::linuxEntries() {
    static const std::vector<Entry> table = [] {
        std::vector<Entry> linux;
        for (Entry entry : macEntries()) {
            if (entry.id == "xcode-derived-data") continue;
            if (entry.id == "yarn-cache") entry.relativePath = ".cache/yarn";
            if (entry.id == "pip-cache") entry.relativePath = ".cache/pip";
            if (entry.id == "swiftpm-cache") entry.relativePath = ".cache/org.swift.swiftpm";
            linux.push_back(std::move(entry));
        }
        return linux;
    }();
    return table;
}

const std::vector<std::string>& CleanupCatalog::keptRelativePaths() {
    // Browser-automation downloads: regenerable, but losing them costs a long download.
    static const std::vector<std::string> kept = {"Library/Caches/ms-playwright", ".cache/ms-playwright",
                                                  ".cache/puppeteer"};
    return kept;
}

namespace {
bool exists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}
}  // namespace

std::vector<CleanupItem>
CleanupCatalog::regenerableItems(const std::function<std::optional<std::string>()>& developerDirectory) const {
    std::vector<CleanupItem> items;
    for (const Entry& entry : entries()) {
        const std::string url = home + "/" + entry.relativePath;
        if (!exists(url)) continue;
        CleanupItem item;
        item.id = entry.id;
        item.title = entry.title;
        item.detail = entry.detail;
        item.url = url;
        items.push_back(std::move(item));
    }
    const std::string devices = home + "/" + simulatorDevicesRelativePath;
    if (exists(devices)) {
        if (auto developer = developerDirectory();
            developer && exists(*developer + "/Platforms/iPhoneSimulator.platform")) {
            CleanupItem item;
            item.id = "simulators-unavailable";
            item.title = "Unavailable simulators";
            item.detail = "Simulators whose iOS runtime is no longer installed.";
            item.url = devices;
            item.action = CleanupAction::deleteUnavailableSimulators;
            item.note = "Size is known after the run";
            items.push_back(std::move(item));
        }
    }
    return items;
}

std::vector<CleanupItem> CleanupCatalog::regenerableItems() const {
    return regenerableItems(currentDeveloperDirectory);
}

std::vector<std::string> CleanupCatalog::keptURLs() const {
    std::vector<std::string> urls;
    for (const std::string& relative : keptRelativePaths()) urls.push_back(home + "/" + relative);
    return urls;
}

}  // namespace brimlet
