#include "../CLocaleNumbers.hpp"

#include <locale.h>
#include <stdlib.h>

namespace kestrow {

namespace {

// Created once and kept for the life of the process; a locale object is immutable and may be
// shared by every thread.
locale_t cLocale() {
    static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

}  // namespace

std::optional<double> readCLocaleDouble(const std::string& text) {
    const locale_t locale = cLocale();
    if (text.empty() || locale == static_cast<locale_t>(nullptr)) return std::nullopt;
    char* end = nullptr;
    const double value = ::strtod_l(text.c_str(), &end, locale);
    if (end != text.c_str() + text.size()) return std::nullopt;
    return value;
}

}  // namespace kestrow
