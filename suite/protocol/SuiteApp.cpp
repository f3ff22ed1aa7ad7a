#include "SuiteApp.hpp"

namespace kestrow::suite {

std::string SuiteApp::displayName() const {
    switch (value) {
    case brimlet: return "Kestrow Brimlet";
    case corvane: return "Kestrow Corvane";
    case dismel: return "Kestrow Dismel";
    case fennick: return "Kestrow Fennick";
    case garrow: return "Kestrow Garrow";
    case hollin: return "Kestrow Hollin";
    case jessap: return "Kestrow Jessap";
    }
    return "Kestrow Brimlet";
}

}  // namespace kestrow::suite
