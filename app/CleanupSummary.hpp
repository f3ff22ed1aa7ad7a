// The few lines that sum up a finished cleanup run at the top of the cleanup window. The report
// itself (and its Markdown and JSON exports) keeps the full account; this decides what a glance
// needs: what happened, what was freed, what waits in the Trash, and what was left and why.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/cleanup/CleanupReport.hpp"

namespace brimlet::CleanupSummary {

struct Text {
    std::string headline;
    std::vector<std::string> lines;
    bool operator==(const Text&) const = default;
};

Text describe(const CleanupReport& report);

// A skipped entry that failed while running (the file operation or the simulator tool), as opposed
// to one the safety rules or the user's situation kept back on purpose.
bool isError(const CleanupReport::Skipped& skipped);

// "1 item", "3 items".
std::string count(std::size_t n, std::string_view singular, std::string_view plural);

}  // namespace brimlet::CleanupSummary
