#include "../Alerts.hpp"

namespace brimlet {

// Linux has no cleanup window to open: point at the Trash and the user's own files instead.
AlertWording AlertWording::forThisPlatform() {
    return AlertWording{.shortOnMemory = "This computer is short on memory.",
                        .reclaimSpace = "Empty the Trash or remove files you no longer need."};
}

}  // namespace brimlet
