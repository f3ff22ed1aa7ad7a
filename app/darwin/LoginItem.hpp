// Launch at login through the system's main-app login item (SMAppService, macOS 13).
#pragma once

#include "base/Status.hpp"

namespace brimlet::mac::LoginItem {

enum class State {
    enabled,           // registered and allowed to run
    disabled,          // not registered
    requiresApproval,  // registered, but the user has to allow it in System Settings
    unavailable,       // the service cannot be reached on this system
};

// What the system reports now; read back after every change, since the user can also change it in
// System Settings.
State current();
// Registers or unregisters the application; a failure carries the system error's description.
kestrow::Status setEnabled(bool enabled);

}  // namespace brimlet::mac::LoginItem
