#include "Checked.hpp"

#include <cstdlib>
#include <string>

#include "Log.hpp"

namespace kestrow {

void fatalError(std::string_view message) {
    log::error("fatal", std::string("fatal error: ") + std::string(message));
    std::abort();
}

}  // namespace kestrow
