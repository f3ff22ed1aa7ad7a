// Every size, memory and rate text of the product. Disk sizes use decimal units (as Finder shows
// them), memory sizes binary divisors (as the system reports memory), both with the same labels.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brimlet::ByteFormat {

std::string string(std::uint64_t bytes);
std::string memory(std::uint64_t bytes);
// "—" when unknown; otherwise the bytes per second truncated toward zero, then "/s".
std::string rate(std::optional<double> bytesPerSecond);
// A negative count gets the minus sign U+2212, not a hyphen.
std::string signedString(std::int64_t bytes);

struct Parts {
    std::string value;
    std::string unit;
    bool operator==(const Parts&) const = default;
};
// The formatted text split at its last blank: "1.5 GB" → {"1.5", "GB"}.
Parts parts(std::uint64_t bytes, bool memory);

}  // namespace brimlet::ByteFormat
