#include "../CLocaleNumbers.hpp"

#include <stdlib.h>
#include <xlocale.h>

namespace kestrow {

namespace {

// Created once and kept for the life of the process; a locale object is immutable and may be
// shared by every thread. Should creation fail, the null locale it returns is LC_C_LOCALE, which
// the _l functions read as the "C" locale too.
locale_t cLocale() {
    static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", LC_C_LOCALE);
    return locale;
}

}  // namespace

std::optional<double> readCLocaleDouble(const std::string& text) {
    if (text.empty()) return std::nullopt;
    char* end = nullptr;
    const double value = ::strtod_l(text.c_str(), &end, cLocale());
    if (end != text.c_str() + text.size()) return std::nullopt;
    return value;
}

}  // namespace kestrow
