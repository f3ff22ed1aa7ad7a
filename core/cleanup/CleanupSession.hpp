// The one entry point of cleanup. Nothing is deleted that this same session did not present to the
// user, and nothing without an approval this session issued for exactly those items, good once.
// Every call runs on the session's own serial executor; callers get futures.
#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ApprovalScanner.hpp"
#include "Cleaner.hpp"
#include "CleanupItem.hpp"
#include "CleanupReport.hpp"
#include "SizeMeasurer.hpp"
#include "base/SerialExecutor.hpp"
#include "base/Status.hpp"

namespace brimlet {

struct CleanupApproval {
    struct Token {
        std::uint64_t high = 0;
        std::uint64_t low = 0;
        // 16 bytes from the system's random source.
        static Token random();
        bool operator==(const Token&) const = default;
        auto operator<=>(const Token&) const = default;
    };

    Token nonce;
    Token session;
    std::vector<std::string> ids;
};

class CleanupSession {
public:
    using Progress = Cleaner::Progress;

    // fileOperations must outlive the session.
    CleanupSession(const std::string& home, FileOperations& fileOperations);

    // Measures the regenerable items. `onMeasured` hears, from the measuring threads, how many of
    // how many are measured; a cancelled measure stops early and leaves sizes unknown or short.
    std::future<MeasureResult> measure(CancelCheck isCancelled = {}, SizeMeasurer::Measured onMeasured = {});
    std::future<std::vector<FolderUsage>> homeUsage(CancelCheck isCancelled);
    std::future<std::vector<CleanupItem>> scanPersonal(CancelCheck isCancelled);
    std::future<CleanupApproval> approve(std::vector<std::string> ids);
    std::future<CleanupReport> clean(std::vector<std::string> ids, CleanupApproval approval, DeleteMode mode,
                                     Progress progress, CancelCheck isCancelled);

    // A result of the calls above, handed to `then` on `loop`'s thread as soon as it is ready.
    template <typename T, typename Then>
    void reply(std::future<T> pending, kestrow::MainLoop& loop, Then then) {
        executor_.replyWhenReady(std::move(pending), loop, std::move(then));
    }

    // Returns once the work handed to the session so far, and its replies, are done.
    void waitUntilIdle() { executor_.waitUntilIdle(); }

    const CleanupApproval::Token& identity() const { return identity_; }

    // For tests: the scanner's seams and the cleaner's collaborators, before any call is made.
    ApprovalScanner& scanner() { return scanner_; }
    Cleaner& cleaner() { return cleaner_; }

private:
    kestrow::Status consume(const CleanupApproval& approval, const std::vector<std::string>& ids);

    std::string home_;
    CleanupCatalog catalog_;
    ApprovalScanner scanner_;
    Cleaner cleaner_;
    std::map<std::string, CleanupItem> known_;
    std::vector<std::string> knownOrder_;  // the allowlist keeps the order items were presented in
    CleanupApproval::Token identity_;
    std::set<CleanupApproval::Token> usedApprovals_;
    kestrow::SerialExecutor executor_{"cleanup-session"};  // last: stops before the state goes
};

}  // namespace brimlet
