// Compiled (syntax only) by the RawValueEnum.* tests, once with a table that matches its cases and
// once for each way it can go wrong; the broken ones must be refused with the check's message.
#include <array>
#include <string_view>

#include "base/RawValueEnum.hpp"

struct Fruit : kestrow::RawValueEnum<Fruit> {
#if RAW_VALUE_ENUM_CASE == 1  // a case added without its raw value
    enum Value : int{apple, pear, plum};
#elif RAW_VALUE_ENUM_CASE == 3  // no fixed underlying type
    enum Value{apple, pear};
#else
    enum Value : int { apple, pear };
#endif
#if RAW_VALUE_ENUM_CASE == 2  // a raw value left behind after its case was removed
    static constexpr std::array<std::string_view, 3> rawValues{"apple", "pear", "plum"};
#else
    static constexpr std::array<std::string_view, 2> rawValues{"apple", "pear"};
#endif
    Value value = apple;
    constexpr Fruit() = default;
    constexpr Fruit(Value v) : value(v) {}
};

constexpr Fruit pear{Fruit::pear};
static_assert(Fruit().value == Fruit::apple && pear.value == Fruit::pear);

int main() { return pear.rawValue() == "pear" ? 0 : 1; }
