#include "../Alerts.hpp"

namespace brimlet {

AlertWording AlertWording::forThisPlatform() { return AlertWording{}; }

}  // namespace brimlet
