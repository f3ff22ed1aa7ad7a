#include "FreedesktopNotifier.hpp"

#include <cerrno>
#include <cstring>

#include "SessionBusLibrary.hpp"
#include "base/Log.hpp"

namespace brimlet {

namespace {

constexpr std::string_view logCategory = "notifier";

std::string describe(const char* step, int result) { return std::string(step) + " failed: " + std::strerror(-result); }

// Where the reply to our one call lands; the bus calls back on this same thread from `process`.
struct Reply {
    bool arrived = false;
    kestrow::Status status = kestrow::Status::success();  // a failure when the service refused the notification
};

int onReply(sdbus::Message* message, void* userdata, sdbus::Error*) {
    auto* reply = static_cast<Reply*>(userdata);
    reply->arrived = true;
    if (const sdbus::Error* error = sdbus::library()->messageError(message); error && error->name)
        reply->status = kestrow::Status::failure("Notify failed: " + std::string(error->name) +
                                                 (error->message ? std::string(": ") + error->message : ""));
    return 1;
}

}  // namespace

FreedesktopNotifier::FreedesktopNotifier(kestrow::MainLoop& loop) : loop_(loop) {}

FreedesktopNotifier::~FreedesktopNotifier() {
    guard_.invalidate();
    cancelled_->store(true);
    sender_.reset();  // a post under way notices the flag within one slice
}

FreedesktopNotifier::Message FreedesktopNotifier::messageFor(const Alert& alert) {
    Message message{.summary = alert.title, .body = alert.body, .icon = "", .urgency = 1};
    switch (alert.kind.value) {
    case AlertKind::memoryPressure:
        message.icon = "dialog-warning";
        message.urgency = 2;
        break;
    case AlertKind::lowDisk: message.icon = "drive-harddisk"; break;
    case AlertKind::heavyApp: message.icon = "dialog-information"; break;
    }
    return message;
}

kestrow::Status FreedesktopNotifier::notify(const Message& message, const std::atomic<bool>& cancelled) {
    const sdbus::Library* bus = sdbus::library();
    if (!bus) return kestrow::Status::failure("libsystemd.so.0 could not be loaded");
    const auto giveUp = std::chrono::steady_clock::now() + deadline;

    sdbus::Bus* connection = nullptr;
    // Opening starts the connection and the authentication without waiting for either: both finish
    // in the loop below, under the same deadline as the call.
    int result = bus->openUser(&connection);
    if (result < 0) return kestrow::Status::failure(describe("opening the session bus", result));
    Reply reply;
    sdbus::Slot* slot = nullptr;
    // Notify(app_name, replaces_id, app_icon, summary, body, actions, hints, expire_timeout); the one
    // hint is the urgency byte.
    result = bus->callMethodAsync(connection, &slot, "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                  "org.freedesktop.Notifications", "Notify", onReply, &reply, "susssasa{sv}i",
                                  applicationName, 0u, message.icon.c_str(), message.summary.c_str(),
                                  message.body.c_str(), 0, 1, "urgency", "y", int{message.urgency}, -1);
    kestrow::Status status = kestrow::Status::success();
    if (result < 0) status = kestrow::Status::failure(describe("Notify", result));
    while (status.ok() && !reply.arrived) {
        result = bus->process(connection, nullptr);
        if (result < 0) {
            status = kestrow::Status::failure(describe("Notify", result));
            break;
        }
        if (result > 0) continue;  // more may be ready at once
        const auto now = std::chrono::steady_clock::now();
        if (cancelled.load()) status = kestrow::Status::failure("Notify given up: the app is stopping");
        else if (now >= giveUp) status = kestrow::Status::failure("Notify failed: no answer within 5 s");
        if (status.failed()) break;
        const auto slice = std::min<std::chrono::steady_clock::duration>(giveUp - now, cancelSlice);
        result =
            bus->wait(connection,
                      static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(slice).count()));
        if (result < 0 && result != -EINTR) status = kestrow::Status::failure(describe("Notify", result));
    }
    if (status.ok()) status = reply.status;
    bus->slotUnref(slot);
    bus->closeUnref(connection);
    return status;
}

void FreedesktopNotifier::post(const Alert& alert, Completion done) {
    if (!sender_) sender_ = std::make_unique<kestrow::SerialExecutor>("notifier");
    (void)sender_->submit(
        [&loop = loop_, alive = guard_.weak(), cancelled = cancelled_, alert, done = std::move(done)] {
            const kestrow::Status status = notify(messageFor(alert), *cancelled);
            if (status.ok()) kestrow::log::info(logCategory, "alert posted: " + alert.title);
            else
                kestrow::log::error(logCategory, "alert not delivered: " + alert.title + " — " + alert.body + " (" +
                                                     status.message() + ")");
            loop.post([alive, done, delivered = status.ok()] {
                if (alive && done) done(delivered);
            });
        });
}

}  // namespace brimlet
