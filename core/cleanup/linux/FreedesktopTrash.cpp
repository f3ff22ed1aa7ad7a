#include "FreedesktopTrash.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "../Cleaner.hpp"
#include "base/Files.hpp"

namespace brimlet {

namespace {

std::string errnoText(const std::string& what, int error) { return what + ": " + std::strerror(error); }

// mkdir -p with owner-only permissions for the folders we create.
bool makeFolders(const std::string& path) {
    std::size_t pos = 1;
    while (pos <= path.size()) {
        const std::size_t slash = path.find('/', pos);
        const std::size_t end = slash == std::string::npos ? path.size() : slash;
        if (::mkdir(path.substr(0, end).c_str(), 0700) != 0 && errno != EEXIST) return false;
        pos = end + 1;
    }
    struct stat st{};
    return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

// The top folder of the mount that holds the path.
std::string mountTop(const std::string& path, dev_t device) {
    std::string current = path;
    while (current != "/") {
        const std::string parent = parentOf(current);
        struct stat st{};
        if (::lstat(parent.c_str(), &st) != 0 || st.st_dev != device) break;
        current = parent;
    }
    return current;
}

}  // namespace

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
    return "[Trash Info]\nPath=" + escapePath(path) + "\nDeletionDate=" + date + "\n";
}

std::optional<std::string> FreedesktopTrash::trashFor(const std::string& path) const {
    struct stat item{}, home{};
    if (::lstat(path.c_str(), &item) != 0) return std::nullopt;
    const std::string homeParent = parentOf(homeTrash_);
    if (makeFolders(homeParent) && ::stat(homeParent.c_str(), &home) == 0 && home.st_dev == item.st_dev)
        return homeTrash_;
    const std::string top = mountTop(path, item.st_dev);
    const std::string uid = std::to_string(::getuid());
    const std::string shared = (top == "/" ? "" : top) + "/.Trash";
    struct stat st{};
    // A shared .Trash counts only when it is a real folder with the sticky bit, never a link.
    if (::lstat(shared.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX) &&
        makeFolders(shared + "/" + uid))
        return shared + "/" + uid;
    const std::string own = (top == "/" ? "" : top) + "/.Trash-" + uid;
    if (makeFolders(own)) return own;
    return std::nullopt;
}

kestrow::Status FreedesktopTrash::trash(const std::string& path) const {
    const auto trashFolder = trashFor(path);
    if (!trashFolder) return kestrow::Status::failure("no Trash on the volume of " + path);
    const std::string files = *trashFolder + "/files", info = *trashFolder + "/info";
    if (!makeFolders(files) || !makeFolders(info)) return kestrow::Status::failure(errnoText("cannot create the Trash", errno));

    std::string name = path.substr(path.rfind('/') + 1);
    const std::string contents = trashInfo(path, kestrow::currentDate());
    for (int attempt = 1; attempt < 10000; ++attempt) {
        const std::string candidate = attempt == 1 ? name : name + "." + std::to_string(attempt);
        const std::string infoPath = info + "/" + candidate + ".trashinfo";
        // O_EXCL claims the name atomically: two programs trashing at once never share it.
        const int fd = ::open(infoPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            return kestrow::Status::failure(errnoText("cannot write to the Trash", errno));
        }
        const bool written = ::write(fd, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size());
        ::close(fd);
        if (!written) {
            ::unlink(infoPath.c_str());
            return kestrow::Status::failure("cannot write to the Trash");
        }
        const std::string target = files + "/" + candidate;
        struct stat st{};
        if (::lstat(target.c_str(), &st) == 0) {  // an orphan without info: never overwrite it
            ::unlink(infoPath.c_str());
            continue;
        }
        if (::rename(path.c_str(), target.c_str()) != 0) {
            const int error = errno;
            ::unlink(infoPath.c_str());
            return kestrow::Status::failure(errnoText("cannot move to the Trash", error));
        }
        return kestrow::Status::success();
    }
    return kestrow::Status::failure("no free name in the Trash");
}

kestrow::Status LiveFileOperations::moveToTrash(const std::string& path) {
    return FreedesktopTrash().trash(path);
}

}  // namespace brimlet
