#include "SuiteFolderArgument.hpp"

#include <algorithm>

#include "base/Files.hpp"
#include "base/UnicodeCase.hpp"

namespace brimlet {

std::string SuiteFolderArgument::Problem::description() const {
    switch (kind) {
    case Kind::notAbsolute: return "--suite-folder needs an absolute path: " + path;
    case Kind::outsideTemporaryFolder: return "--suite-folder must be inside the temporary folder: " + path;
    case Kind::realSuiteFolder: return "--suite-folder must not be the real suite folder: " + path;
    case Kind::missingValue: return "--suite-folder needs a path";
    }
    return "--suite-folder needs a path";
}

std::variant<std::optional<std::string>, SuiteFolderArgument::Problem>
SuiteFolderArgument::resolve(const std::vector<std::string>& arguments, const std::vector<std::string>& temporaryRoots,
                             const std::string& realFolder) {
    using Kind = Problem::Kind;
    auto it = arguments.size() > 1 ? std::find(arguments.begin() + 1, arguments.end(), name) : arguments.end();
    if (it == arguments.end()) return std::optional<std::string>();
    if (it + 1 == arguments.end()) return Problem{Kind::missingValue, ""};
    const std::string& value = *(it + 1);
    if (value.empty()) return Problem{Kind::missingValue, ""};
    if (value.front() != '/') return Problem{Kind::notAbsolute, value};

    const auto canonical = kestrow::canonicalizePath(value);
    if (!canonical) return Problem{Kind::outsideTemporaryFolder, value};
    bool inside = false;
    for (const std::string& root : temporaryRoots) {
        const auto canonicalRoot = kestrow::canonicalizePath(root);
        // A root of "/" would admit every path.
        if (!canonicalRoot || *canonicalRoot == "/") continue;
        if (canonical->rfind(*canonicalRoot + "/", 0) == 0) {
            inside = true;
            break;
        }
    }
    if (!inside) return Problem{Kind::outsideTemporaryFolder, value};

    // The default file system on macOS ignores case in every script, so the real folder is compared
    // without it: "/Users/Jürgen" and "/users/JÜRGEN" are the same folder there.
    const std::string real = kestrow::caseInsensitiveKey(kestrow::canonicalizePath(realFolder).value_or(realFolder));
    const std::string candidate = kestrow::caseInsensitiveKey(*canonical);
    if (candidate == real || candidate.rfind(real + "/", 0) == 0) return Problem{Kind::realSuiteFolder, value};
    return std::optional<std::string>(*canonical);
}

}  // namespace brimlet
