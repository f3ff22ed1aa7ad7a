#include "FreedesktopNotifier.hpp"

#include <systemd/sd-bus.h>

#include <cstring>

#include "base/Log.hpp"

namespace brimlet {

namespace {

constexpr std::string_view logCategory = "notifier";

std::string describe(const char* step, int result, const sd_bus_error* error) {
    std::string text = std::string(step) + " failed: ";
    if (error && sd_bus_error_is_set(error)) text += error->name + std::string(error->message ? ": " : "") +
                                                    (error->message ? error->message : "");
    else text += std::strerror(-result);
    return text;
}

}  // namespace

FreedesktopNotifier::FreedesktopNotifier(kestrow::MainLoop& loop) : loop_(loop) {}

FreedesktopNotifier::~FreedesktopNotifier() {
    alive_.reset();
    sender_.reset();  // finishes a call under way (bounded by the call timeout)
}

kestrow::Status FreedesktopNotifier::notify(const std::string& summary, const std::string& body) {
    sd_bus* bus = nullptr;
    int result = sd_bus_open_user(&bus);
    if (result < 0) return kestrow::Status::failure(describe("opening the session bus", result, nullptr));
    sd_bus_set_method_call_timeout(bus, callTimeoutMicroseconds);
    sd_bus_error error{};  // the same as SD_BUS_ERROR_NULL, without the C compound literal
    sd_bus_message* reply = nullptr;
    // Notify(app_name, replaces_id, app_icon, summary, body, actions, hints, expire_timeout)
    result = sd_bus_call_method(bus, "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                "org.freedesktop.Notifications", "Notify", &error, &reply, "susssasa{sv}i",
                                applicationName, 0u, "", summary.c_str(), body.c_str(), 0, 0, -1);
    kestrow::Status status = kestrow::Status::success();
    if (result < 0) status = kestrow::Status::failure(describe("Notify", result, &error));
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_flush_close_unref(bus);
    return status;
}

void FreedesktopNotifier::post(const Alert& alert, Completion done) {
    if (!sender_) sender_ = std::make_unique<kestrow::SerialExecutor>("notifier");
    (void)sender_->submit([&loop = loop_, alive = std::weak_ptr<bool>(alive_), alert, done = std::move(done)] {
        const kestrow::Status status = notify(alert.title, alert.body);
        if (status.ok()) kestrow::log::info(logCategory, "alert posted: " + alert.title);
        else kestrow::log::error(logCategory, "alert not delivered: " + alert.title + " (" + status.message() + ")");
        loop.post([alive, done, delivered = status.ok()] {
            if (alive.lock() && done) done(delivered);
        });
    });
}

}  // namespace brimlet
