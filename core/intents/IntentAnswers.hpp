// The texts and figures the system's memory questions are answered with. Pure functions, so the
// answers read the same whether the app was already running or was started just for the question.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/IsoDate.hpp"
#include "base/Time.hpp"
#include "core/monitoring/MonitorTypes.hpp"

namespace brimlet::IntentAnswers {

// used ÷ physical, capped at 1; 0 when the physical size is unknown (0).
double memoryFraction(std::uint64_t used, std::uint64_t physical);
// The fraction as a whole percent, halves rounded away from zero (0.995 → 100). Values beyond the
// range of int are clamped to it and a fraction that is not a number reads as 0.
int memoryPercent(double fraction);
std::string memoryDialog(int percent);

std::vector<std::string> topAppNames(const std::vector<AppGroup>& groups);
// "Most memory: Safari 1.25 GB, Mail 512 MB", or a fixed sentence for an empty list.
std::string topAppsDialog(const std::vector<AppGroup>& groups);

// A reading is fresh when it is not from the future and at most maxAge seconds old.
bool isFresh(Date date, Date now, kestrow::Seconds maxAge);

}  // namespace brimlet::IntentAnswers
