#include "SuiteApp.hpp"

namespace kestrow::suite {

const std::vector<SuiteApp>& SuiteApp::allCases() {
    static const std::vector<SuiteApp> cases{brimlet, corvane, dismel, fennick, garrow, hollin, jessap};
    return cases;
}

std::optional<SuiteApp> SuiteApp::fromRawValue(std::string_view raw) {
    for (SuiteApp app : allCases())
        if (app.rawValue() == raw) return app;
    return std::nullopt;
}

std::string_view SuiteApp::rawValue() const {
    switch (value) {
    case brimlet: return "brimlet";
    case corvane: return "corvane";
    case dismel: return "dismel";
    case fennick: return "fennick";
    case garrow: return "garrow";
    case hollin: return "hollin";
    case jessap: return "jessap";
    }
    return "brimlet";
}

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
