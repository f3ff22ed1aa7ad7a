#include "../ScreenWording.hpp"

namespace brimlet {

const ScreenWording& ScreenWording::forThisPlatform() {
    static const ScreenWording wording{
        .thermalCaption = "Is this computer throttling?",
        .pressureCaption = "How hard Linux works to free memory",
        .waitingForFirstSample = "Reading this computer\u2026",
        .graphicsNotReported = "Not reported by this computer",
        .onThisMachine = "on this computer",
    };
    return wording;
}

}  // namespace brimlet
