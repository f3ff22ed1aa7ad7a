// Where this platform keeps the data the cleanup knows about.
#include "../CleanupItem.hpp"
#include "../SafetyPolicy.hpp"

namespace brimlet {

const std::vector<CleanupCatalog::Entry>& CleanupCatalog::entries() { return macEntries(); }

const std::vector<std::string>& NeverTouch::platformRelativeRoots() {
    static const std::vector<std::string> none;
    return none;
}

}  // namespace brimlet
