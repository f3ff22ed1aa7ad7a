// Where this platform keeps the data the cleanup knows about.
#include "../CleanupItem.hpp"
#include "../SafetyPolicy.hpp"

namespace brimlet {

const std::vector<CleanupCatalog::Entry>& CleanupCatalog::entries() { return linuxEntries(); }

// Browser profiles, keyrings and password stores: the Linux homes of the data the common roots
// protect on a Mac.
const std::vector<std::string>& NeverTouch::platformRelativeRoots() {
    static const std::vector<std::string> roots = {".mozilla", ".config/google-chrome", ".config/chromium",
                                                   ".local/share/keyrings", ".password-store"};
    return roots;
}

}  // namespace brimlet
