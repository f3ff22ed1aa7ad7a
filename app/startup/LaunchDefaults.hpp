// The settings one run of the application keeps, opened the same way by every front end: the
// application's own defaults, and for a run given a test suite domain (".qa") that domain's, which
// the suite's shared settings then read and write instead.
#pragma once

#include <memory>
#include <string>
#include <variant>

#include "app/startup/SuiteLaunch.hpp"
#include "base/UserDefaults.hpp"

namespace brimlet {

class LaunchDefaults {
public:
    // Opens both. Without defaults of its own (a domain no file can be named after) the settings
    // last for this run only; a test domain that cannot be opened ends the run with the exit given.
    static std::variant<LaunchDefaults, SuiteLaunch::Exit> open(const SuiteLaunch::DefaultsDomain& suiteDomain,
                                                                const std::string& applicationDomain);

    // The monitor's settings: always the application's own.
    kestrow::UserDefaults& monitor() const { return *standard_; }
    // The suite's settings: the test domain's when there is one, else the application's own.
    kestrow::UserDefaults& suite() const { return named_ ? *named_ : *standard_; }
    // Whether the application's own defaults could not be opened and last for this run only.
    bool inMemory() const { return inMemory_; }

private:
    std::unique_ptr<kestrow::UserDefaults> standard_;
    std::unique_ptr<kestrow::UserDefaults> named_;
    bool inMemory_ = false;
};

}  // namespace brimlet
