#include "app/desktop/QuitRule.hpp"

#include <utility>

namespace brimlet {

QuitRule::SenderLookup QuitRule::senderLookup(bool hasAuditToken, bool hasProcessID) {
    if (hasAuditToken) return SenderLookup::byAuditToken;
    if (hasProcessID) return SenderLookup::byProcessID;
    return SenderLookup::none;
}

IntentQuitPolicy::Request QuitRule::request(std::uint32_t eventClass, std::uint32_t eventID, bool hasQuitReason,
                                            std::optional<std::string> senderPath,
                                            std::optional<std::string> senderSigningID) {
    return IntentQuitPolicy::Request{eventClass == coreEventClass && eventID == quitEventID, hasQuitReason,
                                     std::move(senderPath), std::move(senderSigningID)};
}

QuitRule::Reply QuitRule::reply(const std::optional<IntentQuitPolicy::Request>& request,
                                const std::vector<BrimletWindows::Window>& windows,
                                std::optional<CleanupPhase> cleanupPhase) {
    const bool windowOpen = BrimletWindows::anyOpen(windows);
    const bool cleanupBusy = cleanupPhase && cleanupPhase->isBusy();
    if (!IntentQuitPolicy::refuses(request, windowOpen, cleanupBusy)) return Reply{Answer::terminateNow, std::nullopt};
    return Reply{Answer::terminateCancel, refusalMessage(windowOpen, cleanupBusy)};
}

std::string QuitRule::refusalMessage(bool windowOpen, bool cleanupBusy) {
    // The unified log renders its Boolean format as the words true and false; so does this line.
    auto word = [](bool value) { return value ? "true" : "false"; };
    return std::string("Refused the system's idle quit after an intent: window open ") + word(windowOpen) +
           ", cleanup busy " + word(cleanupBusy);
}

}  // namespace brimlet
