#include "ProcessReader.hpp"

#include <cstring>

#include "base/Checked.hpp"
#include "base/Json.hpp"

namespace brimlet {

std::uint64_t TickClock::nanoseconds(std::uint64_t ticks) const {
    if (denom == 0) kestrow::fatalError("clock with a zero denominator");
    const std::uint64_t whole = kestrow::checkedMultiply(ticks / denom, numer, "tick conversion overflow");
    const std::uint64_t part = kestrow::checkedMultiply(ticks % denom, numer, "tick conversion overflow") / denom;
    return kestrow::checkedAdd(whole, part, "tick conversion overflow");
}

std::optional<std::vector<std::string>> ProcessReader::parseProcArgs(std::string_view bytes) {
    if (bytes.size() < 4) return std::nullopt;
    std::int32_t argc = 0;
    std::memcpy(&argc, bytes.data(), sizeof argc);  // the kernel writes it in host order
    std::vector<std::string> result;
    if (argc < 1) return result;
    std::size_t pos = 4;
    const std::size_t pathEnd = bytes.find('\0', pos);
    if (pathEnd == std::string_view::npos) return result;
    pos = pathEnd;
    while (pos < bytes.size() && bytes[pos] == '\0') ++pos;
    if (pos >= bytes.size()) return result;
    while (result.size() < static_cast<std::size_t>(argc) && pos < bytes.size()) {
        std::size_t end = bytes.find('\0', pos);
        if (end == std::string_view::npos) end = bytes.size();
        result.push_back(kestrow::repairUtf8(bytes.substr(pos, end - pos)));
        pos = end + 1;
    }
    return result;
}

}  // namespace brimlet
