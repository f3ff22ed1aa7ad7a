// The launch values settled before the application starts: which suite folders it meets its
// siblings in, and which defaults domain holds its suite settings. A run pointed at a throw-away
// suite folder ("--suite-folder") gets its own ".qa" domain so it never touches the user's settings.
// Failures end the process with a message and status 2; these functions only decide, the entry
// point writes and exits.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "suite/protocol/SuiteFolder.hpp"

namespace brimlet {

namespace SuiteLaunch {
// The process ends: this text goes to standard error as it stands, then the status is returned.
struct Exit {
    std::string standardError;
    int status = 2;
    bool operator==(const Exit&) const = default;
};

// A user-defaults domain: the standard one, or a named suite of its own.
struct DefaultsDomain {
    std::optional<std::string> suiteName;  // none: the standard user defaults
    bool isStandard() const { return !suiteName.has_value(); }
    bool operator==(const DefaultsDomain&) const = default;
};

inline constexpr std::string_view messagePrefix = "KestrowBrimlet: ";

// The user's own suite folder on this platform, under the real home.
std::string realSuiteFolder(const std::string& realHome);

// "--suite-folder" resolved against the temporary folder and the real suite folder: one folder
// when it is given and valid, the default reachable folders when it is absent.
std::variant<std::vector<kestrow::suite::SuiteFolder>, Exit>
folders(const std::vector<std::string>& arguments, const std::string& temporaryDirectory, const std::string& realHome);
// The same for this process: its temporary folder and the real home.
std::variant<std::vector<kestrow::suite::SuiteFolder>, Exit> folders(const std::vector<std::string>& arguments);

// The bundle identifier followed by ".qa" when "--suite-folder" is among the arguments (the
// program path excluded), else the standard domain.
DefaultsDomain defaultsDomain(const std::vector<std::string>& arguments, std::string_view bundleIdentifier);
// As above, ending the process when the ".qa" domain cannot be opened (`opens` answers that; it
// is not asked about the standard domain).
std::variant<DefaultsDomain, Exit> defaults(const std::vector<std::string>& arguments,
                                            std::string_view bundleIdentifier,
                                            const std::function<bool(const DefaultsDomain&)>& opens);

Exit qaDefaultsUnavailable();
// This application's bundle identifier, the domain the ".qa" suffix is added to.
std::string bundleIdentifier();
// The folder temporary files go to: $TMPDIR when it names a folder, else /tmp.
std::string temporaryDirectory();
}  // namespace SuiteLaunch

}  // namespace brimlet
