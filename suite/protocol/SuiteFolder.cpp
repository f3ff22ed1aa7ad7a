#include "SuiteFolder.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "base/Log.hpp"

namespace kestrow::suite {

SuiteFolder::SuiteFolder(std::string_view path) : url(standardizePath(path)) {}

std::string SuiteFolder::realHome() { return realHomeFolder(); }

SuiteFolder SuiteFolder::plain(const std::string& home) {
    return SuiteFolder(home + "/Library/Application Support/Kestrow/Suite");
}

std::optional<SuiteFolder> usableGroupFolder(const std::optional<std::string>& container, bool sandboxed,
                                             bool exists) {
    if (!container || container->empty() || container->front() != '/') return std::nullopt;
    if (!sandboxed && !exists) return std::nullopt;
    return SuiteFolder(*container);
}

std::optional<SuiteFolder> SuiteFolder::group(const std::string& identifier) {
    const auto container = applicationGroupContainer(identifier);
    struct stat st{};
    const bool exists = container && ::stat(container->c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    return usableGroupFolder(container, isSandboxed(), exists);
}

bool SuiteFolder::isSandboxed() { return std::getenv("APP_SANDBOX_CONTAINER_ID") != nullptr; }

std::vector<SuiteFolder> SuiteFolder::reachable(const std::optional<std::string>& groupIdentifier) {
    std::vector<SuiteFolder> folders;
    if (!isSandboxed()) folders.push_back(standard(realHome()));
    if (groupIdentifier) {
        if (auto shared = group(*groupIdentifier)) folders.push_back(*shared);
    }
    return folders;
}

namespace {

kestrow::Status makeFolders(const std::string& path) {
    std::string partial;
    std::size_t pos = 1;
    while (pos <= path.size()) {
        const std::size_t slash = path.find('/', pos);
        const std::size_t end = slash == std::string::npos ? path.size() : slash;
        partial = path.substr(0, end);
        if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST)
            return kestrow::Status::failure("cannot create " + partial + " (errno " + std::to_string(errno) + ")");
        pos = end + 1;
    }
    struct stat st{};
    if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return kestrow::Status::failure("not a folder: " + path);
    return kestrow::Status::success();
}

}  // namespace

kestrow::Status SuiteFolder::prepare() const {
    if (auto status = makeFolders(url); status.failed()) return status;
    if (auto status = makeFolders(glancesURL()); status.failed()) return status;
    removeStaleTemporaryFiles();
    return kestrow::Status::success();
}

void SuiteFolder::removeStaleTemporaryFiles() const {
    // A member killed while writing leaves its temporary file behind; nothing writes for a minute.
    constexpr std::chrono::seconds stale{60};
    std::vector<std::string> records;
    for (SuiteApp app : SuiteApp::allCases()) records.push_back(app.glanceFileName());
    const std::size_t removed = removeStaleAtomicWriteTemporaries(url, {"settings.json"}, stale) +
                                removeStaleAtomicWriteTemporaries(glancesURL(), records, stale);
    if (removed > 0)
        log::kit::info("suite.folder", "removed " + std::to_string(removed) + " stale temporary files from " + url);
}

kestrow::Status GlanceStore::write(const GlanceRecord& record) const {
    auto encoded = GlanceCodec::encode(record);
    if (auto* error = std::get_if<GlanceValidationError>(&encoded)) return kestrow::Status::failure(error->reason);
    // A record lives for seconds and is rewritten at half its life at the latest: waiting for the
    // disk on every write would cost far more than a record lost to a power cut.
    return writeAtomically(folder.glanceURL(record.app), std::get<std::string>(encoded), 0600, Durability::transient);
}

std::optional<GlanceReadResult> GlanceStore::read(SuiteApp app) const {
    SafeRead file = safeRead(folder.glanceURL(app), readLimit);
    if (std::holds_alternative<SafeRead::Missing>(file.value)) return std::nullopt;
    if (auto* refused = std::get_if<SafeRead::Refused>(&file.value)) return GlanceReadResult::invalid(refused->reason);
    return GlanceCodec::decode(std::get<SafeRead::Data>(file.value).bytes, app.glanceFileName());
}

std::map<SuiteApp, GlanceReadResult> GlanceStore::readAll() const {
    std::map<SuiteApp, GlanceReadResult> results;
    for (SuiteApp app : SuiteApp::allCases())
        if (auto result = read(app)) results.emplace(app, std::move(*result));
    return results;
}

bool PublishSchedule::isDue(const GlanceRecord& record, double now) const {
    if (!lastWritten) return true;
    GlanceRecord candidate = record;
    candidate.at = lastWritten->at;
    if (!(candidate == *lastWritten)) return true;
    return now - lastWritten->at >= static_cast<double>(record.ttl) * 0.5;
}

}  // namespace kestrow::suite
