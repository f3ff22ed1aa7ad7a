#include "../Alerts.hpp"

namespace brimlet {

// Linux has no cleanup window to open: point at the cleaner's command line, whose first step
// only measures and changes nothing.
AlertWording AlertWording::forThisPlatform() {
    return AlertWording{.shortOnMemory = "This computer is short on memory.",
                        .reclaimSpace = "Run KestrowBrimlet --measure to see what can be reclaimed safely."};
}

}  // namespace brimlet
