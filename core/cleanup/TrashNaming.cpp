#include "TrashNaming.hpp"

#include <cstdio>

namespace brimlet {

namespace {

// Cuts to at most `bytes` bytes without splitting a UTF-8 sequence.
std::string_view cut(std::string_view text, std::size_t bytes) {
    if (text.size() <= bytes) return text;
    std::size_t end = bytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

}  // namespace

std::string TrashNaming::trashName(std::string_view name, int attempt, std::size_t maxBytes) {
    const std::string suffix = attempt <= 1 ? std::string() : "." + std::to_string(attempt);
    const std::size_t budget = maxBytes > suffix.size() ? maxBytes - suffix.size() : 0;
    if (name.size() <= budget) return std::string(name) + suffix;
    // Keep a short extension ("dmg", "tar.gz" counts only its last part) so the file still opens.
    std::string_view extension;
    const std::size_t dot = name.rfind('.');
    if (dot != std::string_view::npos && dot > 0 && name.size() - dot <= 16) extension = name.substr(dot);
    const std::size_t marker = 1;  // "~"
    const std::size_t stemBudget = budget > extension.size() + marker ? budget - extension.size() - marker : 0;
    std::string shortened(cut(name.substr(0, name.size() - extension.size()), stemBudget));
    shortened += '~';
    shortened += extension;
    return shortened + suffix;
}

std::string TrashNaming::holdingFolder(const std::string& realHome, bool onHomeVolume, const std::string& volumeTop,
                                       std::uint32_t uid) {
    const std::string name = ".kestrow-holding-" + std::to_string(uid);
    if (onHomeVolume) return realHome + "/Library/Caches/" + name;
    return (volumeTop == "/" ? std::string() : volumeTop) + "/" + name;
}

std::string TrashNaming::holdingEntry(std::uint64_t random) {
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(random));
    return std::string("move-") + hex;
}

}  // namespace brimlet
