#include "FreedesktopTrash.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sys/random.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "../Cleaner.hpp"
#include "../SafetyPolicy.hpp"
#include "../TrashNaming.hpp"
#include "base/Files.hpp"

namespace brimlet {

namespace {

std::string errnoText(const std::string& what, int error) { return what + ": " + std::strerror(error); }

// mkdir -p with owner-only permissions for the folders we create. On failure errno tells why.
bool makeFolders(const std::string& path) {
    std::size_t pos = 1;
    while (pos <= path.size()) {
        const std::size_t slash = path.find('/', pos);
        const std::size_t end = slash == std::string::npos ? path.size() : slash;
        if (::mkdir(path.substr(0, end).c_str(), 0700) != 0 && errno != EEXIST) return false;
        pos = end + 1;
    }
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return false;
    if (!S_ISDIR(st.st_mode)) {
        errno = ENOTDIR;
        return false;
    }
    return true;
}

// A per-user trash on a shared mount must be a real folder of ours: a folder someone else made
// there in our name could be read by them.
bool makeOwnFolder(const std::string& path) {
    if (!makeFolders(path)) return false;
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return false;
    if (st.st_uid != ::getuid()) {
        errno = EPERM;
        return false;
    }
    return true;
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Writes the whole text to a fresh temporary file in the info folder; its name, or the error.
std::optional<std::string> writePending(int infoFolder, const std::string& text, int& error) {
    std::string name;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        std::uint64_t random = 0;
        if (::getentropy(&random, sizeof random) != 0) random = static_cast<std::uint64_t>(::getpid()) * 7919 + attempt;
        char suffix[17];
        std::snprintf(suffix, sizeof suffix, "%016llx", static_cast<unsigned long long>(random));
        name = std::string(FreedesktopTrash::pendingPrefix) + suffix;
        fd = ::openat(infoFolder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) {
        error = errno;
        return std::nullopt;
    }
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            error = n < 0 ? errno : ENOSPC;
            ::close(fd);
            ::unlinkat(infoFolder, name.c_str(), 0);
            return std::nullopt;
        }
        written += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) {
        error = errno;
        ::unlinkat(infoFolder, name.c_str(), 0);
        return std::nullopt;
    }
    return name;
}

// Claims infoName for the text: a hard link to the finished temporary file where the file system
// has them; where it has none (FAT drives), an exclusive create and a write. 0, or the error.
int claimInfo(int infoFolder, const std::string& pending, const std::string& infoName, const std::string& text) {
    if (::linkat(infoFolder, pending.c_str(), infoFolder, infoName.c_str(), 0) == 0) return 0;
    if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return errno;
    const int fd = ::openat(infoFolder, infoName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return errno;
    const ssize_t n = ::write(fd, text.data(), text.size());
    const int error = n < 0 ? errno : ENOSPC;
    if (::close(fd) == 0 && n == static_cast<ssize_t>(text.size())) return 0;
    ::unlinkat(infoFolder, infoName.c_str(), 0);
    return error;
}

// A folder of the trash, opened without following a link. The trash's own place is resolved once
// (a linked ~/.local is common); from there on nothing on the path may be a link.
Descriptor openTrashFolder(const std::string& path) {
    const auto real = resolveRealPath(path);
    if (!real) return Descriptor();
    return Descriptor(openFolderNoLinks(*real, Resolution::fastest));
}

}  // namespace

std::optional<dev_t> FreedesktopTrash::device(const std::string& path) const {
    if (deviceOf) return deviceOf(path);
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
    return st.st_dev;
}

std::string FreedesktopTrash::mountTop(const std::string& path, dev_t itemDevice) const {
    std::string current = path;
    while (current != "/") {
        const std::string parent = parentOf(current);
        if (device(parent) != itemDevice) break;
        current = parent;
    }
    return current;
}

std::string FreedesktopTrash::homeTrashPath() {
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome && dataHome[0] == '/') return std::string(dataHome) + "/Trash";
    const char* home = std::getenv("HOME");
    return std::string(home && home[0] == '/' ? home : kestrow::realHomeFolder().c_str()) + "/.local/share/Trash";
}

std::string FreedesktopTrash::escapePath(std::string_view path) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (const char ch : path) {
        const auto c = static_cast<unsigned char>(ch);
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
            c == '.' || c == '~' || c == '/') {
            out += ch;
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 0xF];
        }
    }
    return out;
}

std::string FreedesktopTrash::trashInfo(std::string_view path, kestrow::Date deletedAt) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(deletedAt));
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    return "[Trash Info]\nPath=" + escapePath(path) + "\nDeletionDate=" + date + "\n" + ownMarker + "\n";
}

kestrow::Result<std::string> FreedesktopTrash::trashFor(const std::string& path) const {
    const auto itemDevice = device(path);
    if (!itemDevice) return kestrow::Status::failure(errnoText("cannot find " + path, errno));
    return trashFor(path, *itemDevice);
}

kestrow::Result<std::string> FreedesktopTrash::trashFor(const std::string& path, dev_t itemDeviceValue) const {
    const std::optional<dev_t> itemDevice = itemDeviceValue;
    int lastError = 0;
    const std::string homeParent = parentOf(homeTrash_);
    if (makeFolders(homeParent)) {
        if (device(homeParent) == itemDevice) return homeTrash_;
    } else {
        lastError = errno;
    }
    const std::string top = mountTop(path, *itemDevice);
    // A mounted file system cannot be renamed into a trash, least of all one inside itself.
    if (top == path)
        return kestrow::Status::failure("no Trash on the volume of " + path +
                                        ": it is the root of a mounted file system");
    const std::string uid = std::to_string(::getuid());
    const std::string base = top == "/" ? "" : top;
    const std::string shared = base + "/.Trash";
    struct stat st {};
    // A shared .Trash counts only when it is a real folder with the sticky bit, never a link.
    if (::lstat(shared.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX)) {
        if (makeOwnFolder(shared + "/" + uid)) return shared + "/" + uid;
        lastError = errno;
    }
    const std::string own = base + "/.Trash-" + uid;
    if (makeOwnFolder(own)) return own;
    lastError = errno != 0 ? errno : lastError;
    return kestrow::Status::failure(errnoText("no Trash on the volume of " + path, lastError));
}

void FreedesktopTrash::removeOrphans(const std::string& trashFolder) const {
    const std::string info = trashFolder + "/info", files = trashFolder + "/files";
    const int infoFd = ::open(info.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (infoFd < 0) return;
    DIR* dir = ::fdopendir(infoFd);
    if (!dir) {
        ::close(infoFd);
        return;
    }
    const std::time_t now = std::time(nullptr);
    std::vector<std::string> orphans;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        const bool pending = name.rfind(pendingPrefix, 0) == 0;
        if (!pending && !endsWith(name, ".trashinfo")) continue;
        struct stat st {};
        if (::fstatat(infoFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode) ||
            st.st_uid != ::getuid() || now - st.st_mtime < orphanAge.count())
            continue;
        if (!pending) {
            // Only an info file whose item is missing and that carries our mark.
            const std::string item = files + "/" + name.substr(0, name.size() - std::strlen(".trashinfo"));
            struct stat itemStatus {};
            if (::lstat(item.c_str(), &itemStatus) == 0 || errno != ENOENT) continue;
            const int fd = ::openat(infoFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
            if (fd < 0) continue;
            char buffer[8192];
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            ::close(fd);
            const std::string text(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
            if (text.rfind("[Trash Info]\n", 0) != 0 ||
                text.find(std::string("\n") + ownMarker + "\n") == std::string::npos)
                continue;
        }
        orphans.push_back(name);
    }
    for (const std::string& name : orphans) ::unlinkat(infoFd, name.c_str(), 0);
    ::closedir(dir);
}

kestrow::Status FreedesktopTrash::trash(const PinnedItem& item) const {
    // The device lookup may be replaced (tests stand a mount in); the item's own device otherwise.
    const dev_t itemDevice = deviceOf ? deviceOf(item.path).value_or(static_cast<dev_t>(item.status.device))
                                      : static_cast<dev_t>(item.status.device);
    const kestrow::Result<std::string> location = trashFor(item.path, itemDevice);
    if (location.failed()) return location.status();
    const std::string filesPath = *location + "/files", infoPath = *location + "/info";
    if (!makeFolders(filesPath) || !makeFolders(infoPath))
        return kestrow::Status::failure(errnoText("cannot create the Trash", errno));
    removeOrphans(*location);
    const Descriptor files = openTrashFolder(filesPath), info = openTrashFolder(infoPath);
    if (!files.valid() || !info.valid()) return kestrow::Status::failure(errnoText("cannot open the Trash", errno));
    struct stat filesStatus {};
    if (::fstat(files.get(), &filesStatus) != 0)
        return kestrow::Status::failure(errnoText("cannot open the Trash", errno));
    if (static_cast<std::uint64_t>(filesStatus.st_dev) != item.status.device)
        return kestrow::Status::failure(errnoText("cannot move to the Trash", EXDEV));

    // The info text is written whole to a temporary file and then linked under its final name,
    // which claims the name atomically (two programs trashing at once never share one) and means
    // an info file of ours is never seen empty or half written, even after a kill.
    int error = 0;
    const std::string text = trashInfo(item.path, kestrow::currentDate());
    const auto pending = writePending(info.get(), text, error);
    if (!pending) return kestrow::Status::failure(errnoText("cannot write to the Trash", error));
    kestrow::Status outcome = kestrow::Status::failure("no free name in the Trash");
    for (int attempt = 1; attempt < 10000; ++attempt) {
        // A name too long for the info file is shortened; the info file keeps the whole path.
        const std::string candidate = TrashNaming::trashName(item.name, attempt);
        const std::string infoName = candidate + ".trashinfo";
        struct stat st {};
        if (::fstatat(files.get(), candidate.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) continue;  // never overwrite
        if (const int claimError = claimInfo(info.get(), *pending, infoName, text); claimError != 0) {
            if (claimError == EEXIST) continue;
            outcome = kestrow::Status::failure(errnoText("cannot write to the Trash", claimError));
            break;
        }
        // Moved only while the name still holds the pinned item.
        const bool same = Pinning::unchanged(item);
        if (!same || ::renameat(item.parent.get(), item.name.c_str(), files.get(), candidate.c_str()) != 0) {
            const int renameError = same ? errno : ESTALE;
            ::unlinkat(info.get(), infoName.c_str(), 0);
            outcome = same ? kestrow::Status::failure(errnoText("cannot move to the Trash", renameError))
                           : kestrow::Status::failure("cannot move to the Trash: it changed since it was checked");
            break;
        }
        outcome = kestrow::Status::success();
        break;
    }
    ::unlinkat(info.get(), pending->c_str(), 0);
    return outcome;
}

kestrow::Status FreedesktopTrash::trash(const std::string& path) const {
    int error = 0;
    const auto item = Pinning::pin(path, error);
    if (!item) return kestrow::Status::failure(errnoText("cannot find " + path, error));
    return trash(*item);
}

kestrow::Status LiveFileOperations::moveToTrash(const PinnedItem& item) { return FreedesktopTrash().trash(item); }

}  // namespace brimlet
