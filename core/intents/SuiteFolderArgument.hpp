// "--suite-folder PATH": lets a test run point the application at a throw-away suite folder. Only a
// folder strictly inside a temporary folder is accepted, and never the real suite folder.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Status.hpp"

namespace brimlet {

namespace SuiteFolderArgument {
inline constexpr const char* name = "--suite-folder";

// A refused value fails with its text as the user sees it, which names the path as given:
// `Cause::invalidArgument` when the switch lacks a path or the path is not absolute,
// `Cause::permissionDenied` when the folder is not one a test run may use (outside the temporary
// folder, or the real suite folder).
// Success holds the canonical folder, or none when the switch is absent. The first argument is the
// program path and is never taken for the switch.
[[nodiscard]] kestrow::Result<std::optional<std::string>> resolve(const std::vector<std::string>& arguments,
                                                                  const std::vector<std::string>& temporaryRoots,
                                                                  const std::string& realFolder);

// The refusal of a folder a test run may not use, for a check made after `resolve` (a folder that
// turns out to be another user's).
[[nodiscard]] kestrow::Status outsideTemporaryFolder(const std::string& path);
}  // namespace SuiteFolderArgument

}  // namespace brimlet
