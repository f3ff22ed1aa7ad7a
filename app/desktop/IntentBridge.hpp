// The C++ side of the intents' C interface: C linkage for its functions, and the installation of
// the running application they answer from.
#pragma once

extern "C" {
#include "app/desktop/IntentBridgeC.h"
}

namespace brimlet {

class BrimletApplication;

namespace IntentBridge {

// Main thread. The application the intents answer from from now on; null when it goes away. With
// none installed the questions take a reading of their own, and a cleanup open waits for the next
// application installed.
void install(BrimletApplication* application);

// The explanations shown when a question cannot be answered.
inline constexpr const char* unavailableText = "Kestrow Brimlet is still starting. Try again in a moment.";
inline constexpr const char* timedOutText = "Kestrow Brimlet could not read the memory figures in time. Try again.";

}  // namespace IntentBridge
}  // namespace brimlet
