// Where this platform keeps the data the cleanup knows about.
#include "../Cleaner.hpp"
#include "../CleanupItem.hpp"
#include "../SafetyPolicy.hpp"
#include "../SizeMeasurer.hpp"

namespace brimlet {

const std::vector<CleanupCatalog::Entry>& CleanupCatalog::entries() { return linuxEntries(); }

// Browser profiles, keyrings and password stores: the Linux homes of the data the common roots
// protect on a Mac.
const std::vector<std::string>& NeverTouch::platformRelativeRoots() {
    static const std::vector<std::string> roots = {".mozilla", ".config/google-chrome", ".config/chromium",
                                                   ".local/share/keyrings", ".password-store"};
    return roots;
}

// No Xcode here: the simulator item is never offered, and nothing would run the tool.
std::pair<std::int32_t, std::string> SimulatorTool::deleteUnavailable() {
    return {-1, "Xcode's simulator tool is not available on this system"};
}
std::optional<std::string> SimulatorTool::developerDirectory() { return std::nullopt; }

// Linux has no privacy gate in front of the user's own folders.
std::optional<bool> FullDiskAccess::isGranted(const std::string&) { return true; }

}  // namespace brimlet
