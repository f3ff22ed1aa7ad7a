#include "IntentAnswers.hpp"

#include <climits>
#include <cmath>

#include "base/Rounding.hpp"
#include "core/common/ByteFormat.hpp"

namespace brimlet::IntentAnswers {

double memoryFraction(std::uint64_t used, std::uint64_t physical) {
    if (physical == 0) return 0;
    if (used >= physical) return 1;
    return static_cast<double>(used) / static_cast<double>(physical);
}

int memoryPercent(double fraction) {
    // Halves round away from zero, unlike printf and roundedHalfEven.
    const double percent = kestrow::roundedHalfAway(fraction * 100.0);
    if (std::isnan(percent)) return 0;
    if (percent >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (percent <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(percent);
}

std::string memoryDialog(int percent) { return "Memory in use: " + std::to_string(percent) + "%"; }

std::vector<std::string> topAppNames(const std::vector<AppGroup>& groups) {
    std::vector<std::string> names;
    names.reserve(groups.size());
    for (const AppGroup& group : groups) names.push_back(group.name);
    return names;
}

std::string topAppsDialog(const std::vector<AppGroup>& groups) {
    if (groups.empty()) return "No apps to list right now.";
    // The short memory units (GB with two decimals, whole MB, whole KB on binary divisors) are the
    // product's memory texts, so the spoken answer matches what the dashboard shows.
    std::string text = "Most memory: ";
    for (std::size_t i = 0; i < groups.size(); ++i) {
        if (i > 0) text += ", ";
        text += groups[i].name + " " + ByteFormat::memory(groups[i].footprint);
    }
    return text;
}

bool isFresh(Date date, Date now, kestrow::Seconds maxAge) {
    const auto age = now - date;
    if (age < age.zero()) return false;
    // Compared in microseconds, as counted: a limit of 2 s takes an age of exactly 2 000 000 µs.
    return static_cast<double>(age.count()) <= std::chrono::duration<double, std::micro>(maxAge).count();
}

}  // namespace brimlet::IntentAnswers
