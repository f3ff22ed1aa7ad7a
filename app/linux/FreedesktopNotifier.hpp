// Alerts as desktop notifications through the freedesktop.org Notifications service
// (org.freedesktop.Notifications on the session bus). Each post opens the session bus, calls Notify
// and closes it again on a thread of its own: alerts are rare (each kind at most every 30 minutes),
// so no connection is held open while the app idles, and a slow or absent service never stalls the
// main loop. The bus library is loaded at run time; without it, a session bus or a service, the
// alert is not delivered and the log says why.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "app/desktop/Notifier.hpp"
#include "base/MainLoop.hpp"
#include "base/SerialExecutor.hpp"
#include "base/Status.hpp"
#include "base/WeakGuard.hpp"

namespace brimlet {

class FreedesktopNotifier final : public Notifier {
public:
    static constexpr const char* applicationName = "Kestrow Brimlet";
    // Connecting, authenticating and the call itself share this one deadline: a bus that accepts
    // the connection and then never answers costs a post at most this long.
    static constexpr std::chrono::milliseconds deadline{5000};
    // How often a post under way looks at whether the notifier is being destroyed; stopping the app
    // never waits on the bus longer than about this.
    static constexpr std::chrono::milliseconds cancelSlice{100};

    struct Message {
        std::string summary;
        std::string body;
        std::string icon;      // a freedesktop icon name, or empty
        std::uint8_t urgency;  // 0 low, 1 normal, 2 critical
    };

    explicit FreedesktopNotifier(kestrow::MainLoop& loop);
    ~FreedesktopNotifier() override;

    void post(const Alert& alert, Completion done) override;

    // What an alert becomes on the desktop: its texts, an icon and an urgency.
    static Message messageFor(const Alert& alert);

    // One Notify call on the session bus named by the environment, given up at `deadline` or as
    // soon as `cancelled` is set; the failure says which step failed. Runs on any thread.
    static kestrow::Status notify(const Message& message, const std::atomic<bool>& cancelled);

private:
    kestrow::MainLoop& loop_;
    kestrow::WeakGuard guard_;
    std::shared_ptr<std::atomic<bool>> cancelled_ = std::make_shared<std::atomic<bool>>(false);
    std::unique_ptr<kestrow::SerialExecutor> sender_;  // made on the first post
};

}  // namespace brimlet
