// Posts the monitor's alerts as the system's user notifications (the notification centre on macOS,
// the freedesktop.org Notifications service on Linux). Delivery is asynchronous: the answer comes
// back later on the main loop, so a slow notification service never holds up sampling.
#pragma once

#include <functional>

#include "core/monitoring/Alerts.hpp"

namespace brimlet {

class Notifier {
public:
    using Completion = std::function<void(bool delivered)>;

    virtual ~Notifier() = default;
    // `done` runs on the main loop with whether the system accepted the notification. It does not
    // run when the notifier is destroyed first.
    virtual void post(const Alert& alert, Completion done) = 0;
};

}  // namespace brimlet
