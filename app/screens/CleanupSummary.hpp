// The few lines that sum up a finished cleanup run at the top of the cleanup window. The report
// itself (and its Markdown and JSON exports) keeps the full account; this decides what a glance
// needs: what happened, what was freed, what waits in the Trash, and what was left and why.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/cleanup/CleanupReport.hpp"
#include "core/cleanup/SizeMeasurer.hpp"

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

// Where the space of the home folder goes, from its measured folders (largest first): the `limit`
// largest that hold anything, as "Library 45.2 GB · Documents 1.2 GB". A folder partly unreadable
// gets "or more", since what could not be read was not counted. Empty when no folder holds anything.
std::string largestFolders(const std::vector<FolderUsage>& folders, std::size_t limit);

}  // namespace brimlet::CleanupSummary
