// The common part of the product's enumerations with string raw values: lookup by raw value, the
// raw value of a case, every case in declaration order, equality and ordering by declaration order.
// A case list `enum Value`, a `Value value` member and a `rawValues` table are all a type provides.
#pragma once

#include <compare>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace kestrow {

template <typename Derived>
struct RawValueEnum {
    static std::optional<Derived> fromRawValue(std::string_view raw) {
        for (std::size_t i = 0; i < Derived::rawValues.size(); ++i)
            if (Derived::rawValues[i] == raw) return Derived(static_cast<typename Derived::Value>(i));
        return std::nullopt;
    }

    static const std::vector<Derived>& allCases() {
        static const std::vector<Derived> cases = [] {
            std::vector<Derived> all;
            for (std::size_t i = 0; i < Derived::rawValues.size(); ++i)
                all.push_back(Derived(static_cast<typename Derived::Value>(i)));
            return all;
        }();
        return cases;
    }

    std::string_view rawValue() const {
        return Derived::rawValues[static_cast<std::size_t>(static_cast<const Derived&>(*this).value)];
    }

    friend constexpr bool operator==(const Derived& a, const Derived& b) { return a.value == b.value; }
    friend constexpr std::strong_ordering operator<=>(const Derived& a, const Derived& b) {
        return static_cast<int>(a.value) <=> static_cast<int>(b.value);
    }
};

}  // namespace kestrow
