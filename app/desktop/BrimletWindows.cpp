#include "app/desktop/BrimletWindows.hpp"

namespace brimlet {

bool BrimletWindows::belongs(std::string_view windowIdentifier, std::string_view id) {
    if (windowIdentifier == id) return true;
    return windowIdentifier.size() > id.size() && windowIdentifier.substr(0, id.size()) == id &&
           windowIdentifier[id.size()] == '-';
}

bool BrimletWindows::isOpen(std::string_view id, const std::vector<Window>& windows) {
    for (const Window& window : windows)
        if (belongs(window.identifier, id) && (window.isVisible || window.isMiniaturized)) return true;
    return false;
}

bool BrimletWindows::anyOpen(const std::vector<Window>& windows) {
    for (std::string_view id : identifiers)
        if (isOpen(id, windows)) return true;
    return false;
}

}  // namespace brimlet
