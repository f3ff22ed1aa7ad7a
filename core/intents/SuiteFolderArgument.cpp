#include "SuiteFolderArgument.hpp"

#include <algorithm>

#include "base/Files.hpp"
#include "base/UnicodeCase.hpp"

namespace brimlet {

namespace {

kestrow::Status missingValue() {
    return kestrow::Status::failure(kestrow::Cause::invalidArgument, "--suite-folder needs a path");
}
kestrow::Status notAbsolute(const std::string& path) {
    return kestrow::Status::failure(kestrow::Cause::invalidArgument, "--suite-folder needs an absolute path: " + path);
}
kestrow::Status realSuiteFolder(const std::string& path) {
    return kestrow::Status::failure(kestrow::Cause::permissionDenied,
                                    "--suite-folder must not be the real suite folder: " + path);
}

}  // namespace

kestrow::Status SuiteFolderArgument::outsideTemporaryFolder(const std::string& path) {
    return kestrow::Status::failure(kestrow::Cause::permissionDenied,
                                    "--suite-folder must be inside the temporary folder: " + path);
}

kestrow::Result<std::optional<std::string>> SuiteFolderArgument::resolve(const std::vector<std::string>& arguments,
                                                                         const std::vector<std::string>& temporaryRoots,
                                                                         const std::string& realFolder) {
    auto it = arguments.size() > 1 ? std::find(arguments.begin() + 1, arguments.end(), name) : arguments.end();
    if (it == arguments.end()) return std::optional<std::string>();
    if (it + 1 == arguments.end()) return missingValue();
    const std::string& value = *(it + 1);
    if (value.empty()) return missingValue();
    if (value.front() != '/') return notAbsolute(value);

    const auto canonical = kestrow::canonicalizePath(value);
    if (!canonical) return outsideTemporaryFolder(value);
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
    if (!inside) return outsideTemporaryFolder(value);

    // The default file system on macOS ignores case in every script, so the real folder is compared
    // without it: "/Users/Jürgen" and "/users/JÜRGEN" are the same folder there.
    const std::string real = kestrow::caseInsensitiveKey(kestrow::canonicalizePath(realFolder).value_or(realFolder));
    const std::string candidate = kestrow::caseInsensitiveKey(*canonical);
    if (candidate == real || candidate.rfind(real + "/", 0) == 0) return realSuiteFolder(value);
    return std::optional<std::string>(*canonical);
}

}  // namespace brimlet
