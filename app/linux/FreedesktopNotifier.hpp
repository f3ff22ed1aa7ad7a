// Alerts as desktop notifications through the freedesktop.org Notifications service
// (org.freedesktop.Notifications on the session bus). Each post opens the session bus, calls Notify
// and closes it again on a thread of its own: alerts are rare (each kind at most every 30 minutes),
// so no connection is held open while the app idles, and a slow or absent service never stalls the
// main loop. Without a session bus or a service the alert is not delivered and the log says why.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/Notifier.hpp"
#include "base/MainLoop.hpp"
#include "base/SerialExecutor.hpp"
#include "base/Status.hpp"

namespace brimlet {

class FreedesktopNotifier final : public Notifier {
public:
    static constexpr const char* applicationName = "Kestrow Brimlet";
    static constexpr std::uint64_t callTimeoutMicroseconds = 5'000'000;

    explicit FreedesktopNotifier(kestrow::MainLoop& loop);
    ~FreedesktopNotifier() override;

    void post(const Alert& alert, Completion done) override;

    // One synchronous Notify call on the session bus named by the environment; the failure says
    // which step failed. Runs on any thread.
    static kestrow::Status notify(const std::string& summary, const std::string& body);

private:
    kestrow::MainLoop& loop_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::unique_ptr<kestrow::SerialExecutor> sender_;  // made on the first post
};

}  // namespace brimlet
