// The common part of the product's enumerations with string raw values: lookup by raw value, the
// raw value of a case, every case in declaration order, equality and ordering by declaration order.
// A case list `enum Value : int`, a `Value value` member and a `rawValues` table are all a type
// provides. The table is checked against the case list when the type is compiled: it must hold one
// raw value for every case, the cases numbered 0, 1, 2 … in order.
#pragma once

#include <compare>
#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace kestrow {

namespace raw_value_enum_detail {

// Whether an enumeration value has a name. The compiler spells a named value by its name in the
// signature of a function specialised for it ("[with auto Case = Type::name]") and an unnamed one
// as a cast ("(Type)4"); both clang and GCC do so.
template <auto Case>
constexpr bool isNamed() {
    constexpr std::string_view signature = __PRETTY_FUNCTION__;
    constexpr std::size_t at = signature.rfind("Case = ");
    static_assert(at != std::string_view::npos, "unexpected compiler signature format");
    return signature[at + 7] != '(';
}

template <typename Value, std::size_t... I>
constexpr bool namesExactly(std::index_sequence<I...>) {
    return (isNamed<static_cast<Value>(I)>() && ...) && !isNamed<static_cast<Value>(sizeof...(I))>();
}

// With a fixed underlying type every int is a value of the enumeration, so looking one past the
// last case is well defined.
template <typename Value>
concept CaseList = std::is_enum_v<Value> && requires {
    Value{0};
};

}  // namespace raw_value_enum_detail

template <typename Derived>
struct RawValueEnum {
    constexpr RawValueEnum() noexcept {
        using Value = typename Derived::Value;
        static_assert(raw_value_enum_detail::CaseList<Value>, "declare the cases as `enum Value : int`");
        static_assert(raw_value_enum_detail::namesExactly<Value>(std::make_index_sequence<Derived::rawValues.size()>()),
                      "rawValues must hold one raw value for every case of Value, and Value no other cases");
    }

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
