// Compares the JSON number writer and reader with the standard library's floating-point
// to_chars/from_chars, which the product cannot use (Apple's libc++ lacks them) but this Linux-only
// fuzz build can. The first eight bytes are taken as a double: the writer must print exactly what
// to_chars printed for it before. The whole input is taken as text: wherever the reader accepts a
// number, it must read the double from_chars reads. Any difference aborts.
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "base/Json.hpp"

namespace {

// The writer as it was, on std::to_chars.
std::string referenceText(double value) {
    if (value == 0) return "0";
    if (value == std::trunc(value) && std::fabs(value) < 1e15) {
        char buffer[32];
        auto r = std::to_chars(buffer, buffer + sizeof buffer, static_cast<std::int64_t>(value));
        return std::string(buffer, r.ptr);
    }
    char buffer[400];
    auto r = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, r.ptr);
}

void compareWriter(double value) {
    if (!std::isfinite(value)) return;
    const std::string text = kestrow::formatShortestDouble(value);
    if (text != referenceText(value)) std::abort();
    const auto parsed = kestrow::parseJson(text);
    const kestrow::JsonValue* json = parsed.ok() ? &*parsed : nullptr;
    if (!json || !json->asNumber() || json->asNumber()->asDouble() != (value == 0 ? 0.0 : value)) std::abort();
}

void compareReader(std::string_view text) {
    const auto parsed = kestrow::parseJson(text);
    const kestrow::JsonValue* json = parsed.ok() ? &*parsed : nullptr;
    if (!json || !json->asNumber() || json->asNumber()->kind != kestrow::JsonNumber::Kind::real) return;
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && std::strchr(" \t\r\n", text[begin])) ++begin;
    while (end > begin && std::strchr(" \t\r\n", text[end - 1])) --end;
    double reference = 0;
    const auto r = std::from_chars(text.data() + begin, text.data() + end, reference);
    if (r.ec != std::errc() || reference != json->asNumber()->d) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size >= sizeof(double)) {
        double value = 0;
        std::memcpy(&value, data, sizeof value);
        compareWriter(value);
    }
    compareReader(std::string_view(reinterpret_cast<const char*>(data), size));
    return 0;
}
