#include "../SuiteFolder.hpp"

namespace kestrow::suite {

// Linux has no application-group containers: every member reaches the folder in the real home.
std::optional<std::string> applicationGroupContainer(const std::string&) { return std::nullopt; }

}  // namespace kestrow::suite
