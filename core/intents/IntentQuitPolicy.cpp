#include "IntentQuitPolicy.hpp"

namespace brimlet {

bool IntentQuitPolicy::Request::isIdleQuitAfterIntent() const {
    // Both the path and the signature must match: a look-alike binary elsewhere, or an unsigned one,
    // is some other sender and its quit is honoured.
    return isQuitEvent && !hasQuitReason && senderPath == idleQuitSenderPath &&
           senderSigningID == idleQuitSenderSigningID;
}

bool IntentQuitPolicy::refuses(const std::optional<Request>& request, bool windowOpen, bool cleanupBusy) {
    if (!request || !request->isIdleQuitAfterIntent()) return false;
    return windowOpen || cleanupBusy;
}

}  // namespace brimlet
