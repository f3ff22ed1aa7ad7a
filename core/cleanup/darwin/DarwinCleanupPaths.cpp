// Where this platform keeps the data the cleanup knows about, and the Mac's own tools and gates.
#include "../Cleaner.hpp"
#include "../CleanupItem.hpp"
#include "../SafetyPolicy.hpp"
#include "../SizeMeasurer.hpp"

namespace brimlet {

const std::vector<CleanupCatalog::Entry>& CleanupCatalog::entries() { return macEntries(); }

const std::vector<std::string>& NeverTouch::platformRelativeRoots() {
    static const std::vector<std::string> none;
    return none;
}

std::pair<std::int32_t, std::string> SimulatorTool::deleteUnavailable() {
    return statusAndMessage(run("/usr/bin/xcrun", {"simctl", "delete", "unavailable"}));
}

std::optional<std::string> SimulatorTool::developerDirectory() {
    return printedPath(run("/usr/bin/xcode-select", {"-p"}));
}

// Safari's folder is readable only with Full Disk Access, and every Mac home has one.
std::optional<bool> FullDiskAccess::isGranted(const std::string& home) { return canList(home + "/Library/Safari"); }

}  // namespace brimlet
