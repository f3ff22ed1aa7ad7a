// The App Intents answer from the running application through the C interface of app/desktop/IntentBridgeC.h.
#include "MacFrontEnd.hpp"

#include "app/desktop/IntentBridge.hpp"

namespace brimlet::mac {

void installIntentBridge(BrimletApplication* application) { IntentBridge::install(application); }

}  // namespace brimlet::mac
