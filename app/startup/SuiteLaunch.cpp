#include "app/startup/SuiteLaunch.hpp"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "core/intents/SuiteFolderArgument.hpp"
#include "suite/protocol/SuiteApp.hpp"

namespace brimlet {

using kestrow::suite::SuiteFolder;

namespace {

bool hasSuiteFolderSwitch(const std::vector<std::string>& arguments) {
    return arguments.size() > 1 &&
           std::find(arguments.begin() + 1, arguments.end(), SuiteFolderArgument::name) != arguments.end();
}

}  // namespace

std::string SuiteLaunch::realSuiteFolder(const std::string& realHome) { return SuiteFolder::standard(realHome).url; }

std::variant<std::vector<SuiteFolder>, SuiteLaunch::Exit>
SuiteLaunch::folders(const std::vector<std::string>& arguments, const std::string& temporaryDirectory,
                     const std::string& realHome) {
    auto resolved = SuiteFolderArgument::resolve(arguments, {temporaryDirectory}, realSuiteFolder(realHome));
    if (resolved.failed()) return Exit{std::string(messagePrefix) + resolved.status().message() + "\n", 2};
    const std::optional<std::string>& folder = *resolved;
    if (folder) {
        // In a shared temporary folder another user may have made the path first, with "glances" a
        // link into our files: only a folder that is really ours is used.
        auto prepared = kestrow::suite::OpenSuiteFolder::prepare(SuiteFolder(*folder));
        if (prepared.status().cause() == kestrow::Cause::permissionDenied) {
            return Exit{
                std::string(messagePrefix) + SuiteFolderArgument::outsideTemporaryFolder(*folder).message() + "\n", 2};
        }
        return std::vector<SuiteFolder>{SuiteFolder(*folder)};
    }
    return SuiteFolder::reachable(std::nullopt);
}

std::variant<std::vector<SuiteFolder>, SuiteLaunch::Exit>
SuiteLaunch::folders(const std::vector<std::string>& arguments) {
    return folders(arguments, temporaryDirectory(), SuiteFolder::realHome());
}

SuiteLaunch::DefaultsDomain SuiteLaunch::defaultsDomain(const std::vector<std::string>& arguments,
                                                        std::string_view bundleIdentifier) {
    if (!hasSuiteFolderSwitch(arguments)) return DefaultsDomain{};
    return DefaultsDomain{std::string(bundleIdentifier) + ".qa"};
}

std::variant<SuiteLaunch::DefaultsDomain, SuiteLaunch::Exit>
SuiteLaunch::defaults(const std::vector<std::string>& arguments, std::string_view bundleIdentifier,
                      const std::function<bool(const DefaultsDomain&)>& opens) {
    DefaultsDomain domain = defaultsDomain(arguments, bundleIdentifier);
    // The standard domain always exists; only the separate test domain can be refused.
    if (!domain.isStandard() && !opens(domain)) return qaDefaultsUnavailable();
    return domain;
}

SuiteLaunch::Exit SuiteLaunch::qaDefaultsUnavailable() {
    return Exit{std::string(messagePrefix) + "the QA defaults domain is not available\n", 2};
}

std::string SuiteLaunch::bundleIdentifier() {
    return kestrow::suite::SuiteApp(kestrow::suite::SuiteApp::brimlet).bundleIdentifier();
}

std::string SuiteLaunch::temporaryDirectory() {
    std::error_code error;
    const auto path = std::filesystem::temp_directory_path(error);
    return error ? std::string("/tmp") : path.string();
}

}  // namespace brimlet
