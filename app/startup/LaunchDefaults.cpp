#include "app/startup/LaunchDefaults.hpp"

namespace brimlet {

std::variant<LaunchDefaults, SuiteLaunch::Exit> LaunchDefaults::open(const SuiteLaunch::DefaultsDomain& suiteDomain,
                                                                     const std::string& applicationDomain) {
    LaunchDefaults opened;
    opened.standard_ = kestrow::UserDefaults::standard(applicationDomain);
    if (!opened.standard_) {
        opened.standard_ = std::make_unique<kestrow::InMemoryUserDefaults>();
        opened.inMemory_ = true;
    }
    if (!suiteDomain.isStandard()) {
        opened.named_ = kestrow::UserDefaults::named(*suiteDomain.suiteName);
        if (!opened.named_) return SuiteLaunch::qaDefaultsUnavailable();
    }
    return opened;
}

}  // namespace brimlet
