// Another member's request to open this application (for example a click on this application's
// row in the shared item), delivered on the main thread.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "suite/protocol/SuiteApp.hpp"

namespace kestrow::suite {

class SuiteOpenObserver {
public:
    // The suite's reverse-DNS domain; requests are named by it followed by ".open".
    static constexpr const char* suiteDomain = "com.kestrow.suite";
    static std::string notificationName() { return std::string(suiteDomain) + ".open"; }

    virtual ~SuiteOpenObserver() = default;

    // Observes requests whose object is `app`'s id, delivered at once even while the application is
    // in the background. None where the platform carries no such requests.
    static std::unique_ptr<SuiteOpenObserver> make(SuiteApp app, std::function<void()> onOpen);
};

}  // namespace kestrow::suite
