#include "app/screens/CleanupSummary.hpp"

#include <algorithm>

#include "core/common/ByteFormat.hpp"

namespace brimlet::CleanupSummary {

std::string count(std::size_t n, std::string_view singular, std::string_view plural) {
    return std::to_string(n) + " " + std::string(n == 1 ? singular : plural);
}

bool isError(const CleanupReport::Skipped& skipped) { return skipped.cause == CleanupReport::SkipCause::failed; }

Text describe(const CleanupReport& report) {
    Text text;
    if (report.refusal) {
        text.headline = "Nothing was touched";
        text.lines.push_back(*report.refusal);
        return text;
    }
    if (report.cancelled) text.headline = "Stopped before all items ran";
    else if (report.deleted.empty()) text.headline = "Nothing was removed";
    else text.headline = "Cleanup finished";

    // Free space can fall during a run: what goes to the Trash stays on the disk, the Trash's own
    // records take a few blocks, and other programs keep writing. Nothing freed is then said as
    // such, with the fall beside it, rather than as a freed amount with a minus sign.
    if (const std::int64_t freed = report.freedNow(); freed >= 0)
        text.lines.push_back("Freed now: " + ByteFormat::string(static_cast<std::uint64_t>(freed)));
    else
        text.lines.push_back("Freed now: " + ByteFormat::string(0) + " (free space fell by " +
                             ByteFormat::string(report.freeBefore - report.freeAfter) + " during the run)");
    if (!report.deleted.empty())
        text.lines.push_back("Removed " + count(report.deleted.size(), "item", "items") + " (" +
                             ByteFormat::string(report.bytesDeleted()) + ")");
    if (const std::uint64_t inTrash = report.bytesInTrash(); inTrash != 0)
        text.lines.push_back(ByteFormat::string(inTrash) + " in the Trash. " + CleanupReport::trashNote);
    const auto errors = static_cast<std::size_t>(std::count_if(report.skipped.begin(), report.skipped.end(), isError));
    if (const std::size_t kept = report.skipped.size() - errors; kept != 0)
        text.lines.push_back("Skipped " + count(kept, "item", "items") + "; the reasons are listed below");
    if (errors != 0) text.lines.push_back(count(errors, "item", "items") + " could not be removed");
    return text;
}

std::string largestFolders(const std::vector<FolderUsage>& folders, std::size_t limit) {
    std::string line;
    std::size_t shown = 0;
    for (const FolderUsage& folder : folders) {
        if (shown == limit) break;
        if (folder.bytes == 0) continue;
        if (shown++ != 0) line += " \u00b7 ";
        line += folder.name + " " + ByteFormat::string(folder.bytes);
        if (folder.unreadable != 0) line += " or more";
    }
    return line;
}

}  // namespace brimlet::CleanupSummary
