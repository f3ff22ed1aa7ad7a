// When the system starts the app only to run an intent, its intent service later asks it to quit
// once idle. That request must not close a window the user is working in or cut a cleanup short;
// every other quit (menu, Dock, another app, a logout with a reason) always proceeds.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimlet {

namespace IntentQuitPolicy {
inline constexpr std::string_view idleQuitSenderPath = "/usr/libexec/linkd";
inline constexpr std::string_view idleQuitSenderSigningID = "com.apple.linkd";

// What the quit event says about itself and its sender. Sender fields are absent when the
// sender's code, its path or its signing information cannot be found out.
struct Request {
    bool isQuitEvent = false;    // class "aevt", identifier "quit"
    bool hasQuitReason = false;  // carries the "why?" attribute (logout, restart, shutdown)
    std::optional<std::string> senderPath;
    std::optional<std::string> senderSigningID;

    bool isIdleQuitAfterIntent() const;
    bool operator==(const Request&) const = default;
};

bool refuses(const std::optional<Request>& request, bool windowOpen, bool cleanupBusy);
}  // namespace IntentQuitPolicy

}  // namespace brimlet
