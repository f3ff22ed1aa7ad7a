#include <cstdlib>

#include "../SuiteFolder.hpp"

namespace kestrow::suite {

// Linux has no application-group containers: every member reaches the folder in the real home.
std::optional<std::string> applicationGroupContainer(const std::string&) { return std::nullopt; }

SuiteFolder SuiteFolder::standard(const std::string& home) {
    // A relative XDG_DATA_HOME is invalid and ignored, as the base-directory rules say.
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && data[0] == '/') return SuiteFolder(std::string(data) + "/kestrow/suite");
    return SuiteFolder(home + "/.local/share/kestrow/suite");
}

}  // namespace kestrow::suite
