// Placeholder: alerts as user notifications.
#include "MacFrontEnd.hpp"

namespace brimlet::mac {

std::unique_ptr<Notifier> makeUserNotificationNotifier(kestrow::MainLoop&) { return nullptr; }

}  // namespace brimlet::mac
