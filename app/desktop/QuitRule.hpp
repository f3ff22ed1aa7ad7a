// The application's answer to a request to terminate. The platform translates the current quit
// event, its windows and the cleanup store into plain values; the decision and its log line are made
// here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/desktop/BrimletWindows.hpp"
#include "app/stores/CleanupPhase.hpp"
#include "core/intents/IntentQuitPolicy.hpp"

namespace brimlet {

// An Apple event four-character code, most significant byte first ("aevt" → 0x61657674).
constexpr std::uint32_t fourCharCode(std::string_view code) {
    std::uint32_t value = 0;
    for (char c : code.substr(0, 4)) value = (value << 8) | static_cast<unsigned char>(c);
    return value;
}

namespace QuitRule {
inline constexpr std::uint32_t coreEventClass = fourCharCode("aevt");
inline constexpr std::uint32_t quitEventID = fourCharCode("quit");
inline constexpr std::uint32_t quitReasonKeyword = fourCharCode("why?");
inline constexpr std::uint32_t senderAuditTokenKeyword = fourCharCode("tokn");
inline constexpr std::uint32_t senderProcessIDKeyword = fourCharCode("spid");

// How to find the sender's code: the audit token names the process unambiguously and wins; a
// process id is the fallback (it could have been reused); with neither there is no sender.
enum class SenderLookup { byAuditToken, byProcessID, none };
SenderLookup senderLookup(bool hasAuditToken, bool hasProcessID);

// The sender fields are absent when the lookup failed at any step; such a request is never the
// intent service's idle quit.
IntentQuitPolicy::Request request(std::uint32_t eventClass, std::uint32_t eventID, bool hasQuitReason,
                                  std::optional<std::string> senderPath, std::optional<std::string> senderSigningID);

enum class Answer { terminateNow, terminateCancel };
struct Reply {
    Answer answer = Answer::terminateNow;
    std::optional<std::string> logMessage;  // written when the quit is refused
    bool operator==(const Reply&) const = default;
};

// `cleanupPhase` is absent when the cleanup store is gone, which counts as not busy.
Reply reply(const std::optional<IntentQuitPolicy::Request>& request, const std::vector<BrimletWindows::Window>& windows,
            std::optional<CleanupPhase> cleanupPhase);

std::string refusalMessage(bool windowOpen, bool cleanupBusy);
}  // namespace QuitRule

}  // namespace brimlet
