#include "../ScreenWording.hpp"

namespace brimlet {

const ScreenWording& ScreenWording::forThisPlatform() {
    static const ScreenWording wording;
    return wording;
}

}  // namespace brimlet
