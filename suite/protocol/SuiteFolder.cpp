#include "SuiteFolder.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <utility>

#include "base/Log.hpp"

namespace kestrow::suite {

SuiteFolder::SuiteFolder(std::string_view path) : url(standardizePath(path)) {}

std::string SuiteFolder::realHome() { return realHomeFolder(); }

SuiteFolder SuiteFolder::plain(const std::string& home) {
    return SuiteFolder(home + "/Library/Application Support/Kestrow/Suite");
}

std::optional<SuiteFolder> usableGroupFolder(const std::optional<std::string>& container, bool sandboxed, bool exists) {
    if (!container || container->empty() || container->front() != '/') return std::nullopt;
    if (!sandboxed && !exists) return std::nullopt;
    return SuiteFolder(*container);
}

std::optional<SuiteFolder> SuiteFolder::group(const std::string& identifier) {
    const auto container = applicationGroupContainer(identifier);
    struct stat st {};
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

// Makes every missing component of `path` with permissions 0700; what exists already is judged when
// it is opened.
kestrow::Status makeFolders(const std::string& path) {
    std::size_t pos = 1;
    while (pos <= path.size()) {
        const std::size_t slash = path.find('/', pos);
        const std::size_t end = slash == std::string::npos ? path.size() : slash;
        const std::string partial = path.substr(0, end);
        if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST)
            return kestrow::Status::failure("cannot create " + partial + " (errno " + std::to_string(errno) + ")");
        pos = end + 1;
    }
    return kestrow::Status::success();
}

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

kestrow::Status unavailable(std::string reason) {
    return kestrow::Status::failure(kestrow::Cause::unavailable, std::move(reason));
}
kestrow::Status notPrivate(std::string reason) {
    return kestrow::Status::failure(kestrow::Cause::permissionDenied, std::move(reason));
}

// Opens `name` in `parentFd` (or the absolute `path` when parentFd is AT_FDCWD) as a folder of ours
// with permissions 0700; -1 with the fault otherwise.
int openPrivateFolder(int parentFd, const std::string& name, const std::string& path, kestrow::Status& fault) {
    const int fd = ::openat(parentFd, name.c_str(), folderFlags);
    if (fd < 0) {
        const int error = errno;
        struct stat st {};
        if (::fstatat(parentFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode))
            fault = notPrivate(path + " is a link, not a folder");
        else if (error == ENOTDIR) fault = unavailable(path + " is not a folder");
        else fault = unavailable("cannot open " + path + " (errno " + std::to_string(error) + ")");
        return -1;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        fault = unavailable("cannot examine " + path + " (errno " + std::to_string(errno) + ")");
        ::close(fd);
        return -1;
    }
    if (st.st_uid != ::getuid()) {
        fault = notPrivate(path + " is owned by another user");
        ::close(fd);
        return -1;
    }
    // Ours, but others may look in or even write: only we may.
    if ((st.st_mode & 07777) != 0700 && ::fchmod(fd, 0700) != 0) {
        fault = unavailable("cannot set the permissions of " + path + " (errno " + std::to_string(errno) + ")");
        ::close(fd);
        return -1;
    }
    return fd;
}

bool sameFile(int fd, const std::string& path) {
    struct stat open {
    }, named{};
    if (::fstat(fd, &open) != 0 || ::lstat(path.c_str(), &named) != 0) return false;
    return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

std::vector<std::string> recordFileNames() {
    std::vector<std::string> records;
    for (SuiteApp app : SuiteApp::allCases()) records.push_back(app.glanceFileName());
    return records;
}

// A member killed while writing leaves its temporary file behind; nothing writes for a minute.
constexpr std::chrono::seconds staleTemporary{60};

// A member that has not written its record is simply not there; a record the protected read refused
// is shown with the reason.
std::optional<GlanceRead> decodeRead(const kestrow::Result<std::string>& file, SuiteApp app) {
    if (file.status().cause() == kestrow::Cause::notFound) return std::nullopt;
    if (file.failed()) return GlanceRead(file.status());
    return GlanceCodec::decode(*file, app.glanceFileName());
}

}  // namespace

kestrow::Status SuiteFolder::prepare() const {
    auto opened = OpenSuiteFolder::prepare(*this);
    if (opened.failed()) return opened.status();
    opened->removeStaleTemporaryFiles();
    return kestrow::Status::success();
}

void SuiteFolder::removeStaleTemporaryFiles() const {
    auto opened = OpenSuiteFolder::open(*this);
    if (opened.ok()) opened->removeStaleTemporaryFiles();
}

OpenSuiteFolder::OpenSuiteFolder(SuiteFolder folder, int folderFd, int glancesFd)
    : folder_(std::move(folder)),
      folderFd_(folderFd),
      glancesFd_(glancesFd) {}

OpenSuiteFolder::OpenSuiteFolder(OpenSuiteFolder&& other) noexcept
    : folder_(other.folder_),
      folderFd_(std::exchange(other.folderFd_, -1)),
      glancesFd_(std::exchange(other.glancesFd_, -1)),
      record_(std::move(other.record_)) {}

OpenSuiteFolder& OpenSuiteFolder::operator=(OpenSuiteFolder&& other) noexcept {
    if (this != &other) {
        close();
        folder_ = other.folder_;
        folderFd_ = std::exchange(other.folderFd_, -1);
        glancesFd_ = std::exchange(other.glancesFd_, -1);
        record_ = std::move(other.record_);
    }
    return *this;
}

OpenSuiteFolder::~OpenSuiteFolder() { close(); }

void OpenSuiteFolder::close() {
    record_.reset();  // removes its spare while the folder is still held
    if (glancesFd_ >= 0) ::close(glancesFd_);
    if (folderFd_ >= 0) ::close(folderFd_);
    glancesFd_ = folderFd_ = -1;
}

kestrow::Result<OpenSuiteFolder> OpenSuiteFolder::prepare(const SuiteFolder& folder) {
    return openOrPrepare(folder, true);
}

kestrow::Result<OpenSuiteFolder> OpenSuiteFolder::open(const SuiteFolder& folder) {
    return openOrPrepare(folder, false);
}

kestrow::Result<OpenSuiteFolder> OpenSuiteFolder::openOrPrepare(const SuiteFolder& folder, bool create) {
    if (create) {
        if (auto made = makeFolders(folder.url); made.failed()) return unavailable(made.message());
    }
    kestrow::Status fault = kestrow::Status::success();
    const int folderFd = openPrivateFolder(AT_FDCWD, folder.url, folder.url, fault);
    if (folderFd < 0) return fault;
    // Made inside the folder just checked, whatever its path names by now.
    if (create && ::mkdirat(folderFd, "glances", 0700) != 0 && errno != EEXIST) {
        const int error = errno;
        ::close(folderFd);
        return unavailable("cannot create " + folder.glancesURL() + " (errno " + std::to_string(error) + ")");
    }
    const int glancesFd = openPrivateFolder(folderFd, "glances", folder.glancesURL(), fault);
    // Opened only to use what is there, a folder without "glances" still serves its settings.
    const bool glancesMissing = !create && glancesFd < 0 && fault.cause() == kestrow::Cause::unavailable &&
                                ::faccessat(folderFd, "glances", F_OK, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
    if (glancesFd < 0 && !glancesMissing) {
        ::close(folderFd);
        return fault;
    }
    return OpenSuiteFolder(folder, folderFd, glancesFd);
}

bool OpenSuiteFolder::stillNamed() const {
    return folderFd_ >= 0 && sameFile(folderFd_, folder_.url) && sameFile(glancesFd_, folder_.glancesURL());
}

kestrow::Status OpenSuiteFolder::write(const GlanceRecord& record) const {
    auto encoded = GlanceCodec::encode(record);
    if (encoded.failed()) return encoded.status();
    if (glancesFd_ < 0)
        return kestrow::Status::failure("cannot open " + folder_.glancesURL() + " (errno " + std::to_string(ENOENT) +
                                        ")");
    // A record lives for seconds and is rewritten at half its life at the latest: waiting for the
    // disk on every write would cost far more than a record lost to a power cut.
    const std::string name = record.app.glanceFileName();
    if (!record_ || record_->name() != name) record_ = std::make_unique<kestrow::SwappedFile>(glancesFd_, name);
    return record_->write(*encoded);
}

std::optional<GlanceRead> OpenSuiteFolder::read(SuiteApp app) const {
    if (glancesFd_ < 0) return std::nullopt;
    return decodeRead(safeReadAt(glancesFd_, app.glanceFileName(), GlanceStore::readLimit), app);
}

std::map<SuiteApp, GlanceRead> OpenSuiteFolder::readAll() const {
    std::map<SuiteApp, GlanceRead> results;
    for (SuiteApp app : SuiteApp::allCases())
        if (auto result = read(app)) results.emplace(app, std::move(*result));
    return results;
}

kestrow::Result<std::string> OpenSuiteFolder::readFile(const std::string& name, std::size_t limit) const {
    return safeReadAt(folderFd_, name, limit);
}

kestrow::Status OpenSuiteFolder::writeFile(const std::string& name, std::string_view bytes) const {
    return writeAtomicallyAt(folderFd_, name, bytes);
}

void OpenSuiteFolder::removeStaleTemporaryFiles() const {
    std::size_t removed = removeStaleAtomicWriteTemporariesAt(folderFd_, {"settings.json"}, staleTemporary);
    if (glancesFd_ >= 0) removed += removeStaleAtomicWriteTemporariesAt(glancesFd_, recordFileNames(), staleTemporary);
    if (removed > 0)
        log::kit::info("suite.folder",
                       "removed " + std::to_string(removed) + " stale temporary files from " + folder_.url);
}

kestrow::Status GlanceStore::write(const GlanceRecord& record) const {
    auto opened = OpenSuiteFolder::open(folder);
    if (opened.failed()) {
        // The record's own faults come first, as they would from the codec.
        if (auto problem = GlanceCodec::problem(record); problem.failed()) return problem;
        return opened.status();
    }
    return opened->write(record);
}

std::optional<GlanceRead> GlanceStore::read(SuiteApp app) const {
    return decodeRead(kestrow::safeRead(folder.glanceURL(app), readLimit), app);
}

std::map<SuiteApp, GlanceRead> GlanceStore::readAll() const {
    std::map<SuiteApp, GlanceRead> results;
    for (SuiteApp app : SuiteApp::allCases())
        if (auto result = read(app)) results.emplace(app, std::move(*result));
    return results;
}

bool PublishSchedule::isDue(const GlanceRecord& record, double now) const {
    if (!lastWritten) return true;
    GlanceRecord candidate = record;
    candidate.at = lastWritten->at;
    if (!(candidate == *lastWritten)) return true;
    const double age = now - lastWritten->at;
    // A negative age means the clock was set back since the last write: that record's `at` lies in
    // the readers' future, where they cannot count it as fresh, so a new one is due at once.
    if (age < 0) return true;
    return age >= static_cast<double>(record.ttl) * 0.5;
}

}  // namespace kestrow::suite
