// "--suite-folder PATH": lets a test run point the application at a throw-away suite folder. Only a
// folder strictly inside a temporary folder is accepted, and never the real suite folder.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace brimlet {

namespace SuiteFolderArgument {
inline constexpr const char* name = "--suite-folder";

struct Problem {
    enum class Kind { notAbsolute, outsideTemporaryFolder, realSuiteFolder, missingValue };
    Kind kind;
    std::string path;
    std::string description() const;
    bool operator==(const Problem&) const = default;
};

// Success holds the canonical folder, or none when the switch is absent. The first argument is the
// program path and is never taken for the switch.
std::variant<std::optional<std::string>, Problem> resolve(const std::vector<std::string>& arguments,
                                                          const std::vector<std::string>& temporaryRoots,
                                                          const std::string& realFolder);
}  // namespace SuiteFolderArgument

}  // namespace brimlet
