// Overflow in a size or time sum is a programming error the product refuses to continue past:
// a wrong byte count shown to the user, or a wrong size reported for deletion, is worse than a crash.
#pragma once

#include <cstdint>
#include <string_view>

namespace kestrow {

[[noreturn]] void fatalError(std::string_view message);

inline std::uint64_t checkedMultiply(std::uint64_t a, std::uint64_t b, std::string_view what) {
    std::uint64_t r = 0;
    if (__builtin_mul_overflow(a, b, &r)) fatalError(what);
    return r;
}

inline std::uint64_t checkedAdd(std::uint64_t a, std::uint64_t b, std::string_view what) {
    std::uint64_t r = 0;
    if (__builtin_add_overflow(a, b, &r)) fatalError(what);
    return r;
}

}  // namespace kestrow
