#include "CleanupSession.hpp"

#include <sys/random.h>  // getentropy, on Linux and macOS alike
#include <unistd.h>

#include <cstring>

#include "base/Checked.hpp"
#include "core/common/DiskSpace.hpp"

namespace brimlet {

CleanupApproval::Token CleanupApproval::Token::random() {
    unsigned char bytes[16];
    if (::getentropy(bytes, sizeof bytes) != 0) kestrow::fatalError("no system randomness");
    Token token;
    std::memcpy(&token.high, bytes, 8);
    std::memcpy(&token.low, bytes + 8, 8);
    return token;
}

CleanupSession::CleanupSession(const std::string& home, FileOperations& fileOperations)
    : home_(home),
      catalog_(home),
      scanner_(home),
      cleaner_(home, fileOperations),
      identity_(CleanupApproval::Token::random()) {}

std::future<MeasureResult> CleanupSession::measure(CancelCheck isCancelled, SizeMeasurer::Measured onMeasured) {
    return executor_.submit([this, isCancelled = std::move(isCancelled), onMeasured = std::move(onMeasured)] {
        MeasureResult result;
        result.regenerable = catalog_.regenerableItems();
        // Measured concurrently; the simulator item keeps its absent size, only the tool knows it.
        std::vector<std::size_t> measured;
        std::vector<std::string> paths;
        for (std::size_t i = 0; i < result.regenerable.size(); ++i) {
            if (result.regenerable[i].action == CleanupAction::deleteUnavailableSimulators) continue;
            measured.push_back(i);
            paths.push_back(result.regenerable[i].url);
        }
        const std::vector<TreeCensus> sizes = SizeMeasurer::censusAll(paths, isCancelled, onMeasured);
        for (std::size_t k = 0; k < measured.size(); ++k) {
            result.regenerable[measured[k]].size = sizes[k].bytes;
            // The clean acts only on the file measured here.
            result.regenerable[measured[k]].measuredIdentity = sizes[k].identity;
        }
        // The caches live in the home folder, so its file system is the one whose space they take.
        auto volume = DiskSpace::volume(home_);
        if (!volume) volume = DiskSpace::dataVolume();
        if (volume) std::tie(result.freeBytes, result.totalBytes) = *volume;
        for (const CleanupItem& item : result.regenerable) {
            if (known_.insert_or_assign(item.id, item).second) knownOrder_.push_back(item.id);
        }
        return result;
    });
}

std::future<std::vector<FolderUsage>> CleanupSession::homeUsage(CancelCheck isCancelled) {
    return executor_.submit(
        [this, isCancelled = std::move(isCancelled)] { return SizeMeasurer::homeUsage(home_, isCancelled); });
}

std::future<std::vector<CleanupItem>> CleanupSession::scanPersonal(CancelCheck isCancelled) {
    return executor_.submit([this, isCancelled = std::move(isCancelled)] {
        std::vector<CleanupItem> items = scanner_.scan(isCancelled);
        // What each item takes, so the user weighs it before approving it. A cancelled pass keeps
        // no figure at all: a partial walk would show the item smaller than it is.
        std::vector<std::string> paths;
        for (const CleanupItem& item : items) paths.push_back(item.url);
        const std::vector<TreeCensus> sizes = SizeMeasurer::censusAll(paths, isCancelled);
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (!isCancelled()) items[i].size = sizes[i].bytes;
            items[i].measuredIdentity = sizes[i].identity;
        }
        for (const CleanupItem& item : items) {
            if (known_.insert_or_assign(item.id, item).second) knownOrder_.push_back(item.id);
        }
        return items;
    });
}

std::future<CleanupApproval> CleanupSession::approve(std::vector<std::string> ids) {
    return executor_.submit([this, ids = std::move(ids)] {
        return CleanupApproval{CleanupApproval::Token::random(), identity_, ids};
    });
}

kestrow::Status CleanupSession::consume(const CleanupApproval& approval, const std::vector<std::string>& ids) {
    using kestrow::Status;
    if (!(approval.session == identity_)) return Status::failure("The approval came from another cleanup session.");
    if (usedApprovals_.count(approval.nonce)) return Status::failure("The approval was already used.");
    // Spent before the items are compared: an approval shown with the wrong items cannot be retried.
    usedApprovals_.insert(approval.nonce);
    if (approval.ids != ids) return Status::failure("The items differ from the ones approved.");
    return Status::success();
}

std::future<CleanupReport> CleanupSession::clean(std::vector<std::string> ids, CleanupApproval approval,
                                                 DeleteMode mode, Progress progress, CancelCheck isCancelled) {
    return executor_.submit([this, ids = std::move(ids), approval = std::move(approval), mode,
                             progress = std::move(progress), isCancelled = std::move(isCancelled)] {
        if (const kestrow::Status accepted = consume(approval, ids); accepted.failed()) {
            CleanupReport report;
            report.startedAt = report.finishedAt = kestrow::currentDate();
            report.requestedMode = mode;
            report.freeBefore = report.freeAfter = cleaner_.freeSpace({home_});
            report.refusal = accepted.message();
            return report;
        }
        std::vector<CleanupItem> items;
        for (const std::string& id : ids)
            if (auto it = known_.find(id); it != known_.end()) items.push_back(it->second);
        std::vector<AllowedRoot> allowedRoots;
        for (const std::string& id : knownOrder_) {
            const CleanupItem& known = known_.at(id);
            allowedRoots.push_back({known.url, known.measuredIdentity});
        }
        return cleaner_.run(items, allowedRoots, mode, progress, isCancelled);
    });
}

}  // namespace brimlet
