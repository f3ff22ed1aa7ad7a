#include "ByteFormat.hpp"

#include <cmath>
#include <cstdio>

#include "base/Checked.hpp"

namespace brimlet::ByteFormat {

namespace {

// printf's own rounding, so that the texts match what the platform's formatters print.
std::string format(const char* pattern, double value) {
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, pattern, value);
    return std::string(buffer, static_cast<std::size_t>(n));
}

}  // namespace

std::string string(std::uint64_t bytes) {
    const double b = static_cast<double>(bytes);
    if (bytes < 1'000ULL) return std::to_string(bytes) + " B";
    if (bytes < 1'000'000ULL) return format("%.0f KB", b / 1e3);
    if (bytes < 1'000'000'000ULL) return format("%.0f MB", b / 1e6);
    if (bytes < 1'000'000'000'000ULL) return format("%.1f GB", b / 1e9);
    return format("%.2f TB", b / 1e12);
}

std::string memory(std::uint64_t bytes) {
    const double b = static_cast<double>(bytes);
    if (bytes < 1'048'576ULL) return format("%.0f KB", b / 1024.0);
    if (bytes < 1'073'741'824ULL) return format("%.0f MB", b / 1'048'576.0);
    return format("%.2f GB", b / 1'073'741'824.0);
}

std::string rate(std::optional<double> bytesPerSecond) {
    if (!bytesPerSecond) return "\u2014";
    const double v = *bytesPerSecond;
    if (!std::isfinite(v) || !(v > -1.0) || !(v < 18446744073709551616.0)) kestrow::fatalError("rate out of range");
    return string(static_cast<std::uint64_t>(v)) + "/s";
}

std::string signedString(std::int64_t bytes) {
    if (bytes >= 0) return string(static_cast<std::uint64_t>(bytes));
    // Magnitude without overflow, INT64_MIN included.
    const std::uint64_t magnitude = ~static_cast<std::uint64_t>(bytes) + 1;
    return "\u2212" + string(magnitude);
}

Parts parts(std::uint64_t bytes, bool isMemory) {
    const std::string text = isMemory ? memory(bytes) : string(bytes);
    const std::size_t blank = text.rfind(' ');
    if (blank == std::string::npos) return {text, ""};
    return {text.substr(0, blank), text.substr(blank + 1)};
}

}  // namespace brimlet::ByteFormat
