#include "Pinning.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace brimlet {

std::string PinnedItem::parentPath() const {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

std::optional<std::vector<std::string_view>> Pinning::components(std::string_view path) {
    if (path.empty() || path.front() != '/') return std::nullopt;
    std::vector<std::string_view> parts;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view part = path.substr(0, slash);
        if (part == "." || part == "..") return std::nullopt;
        if (!part.empty()) parts.push_back(part);
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    return parts;
}

std::string Pinning::expectedRealPath(const std::string& itemPath, const std::string& home,
                                      const std::string& realHome) {
    std::string rest;
    std::string trimmedHome = home;
    while (trimmedHome.size() > 1 && trimmedHome.back() == '/') trimmedHome.pop_back();
    if (itemPath.rfind(trimmedHome + "/", 0) == 0) rest = itemPath.substr(trimmedHome.size());
    else if (itemPath.rfind(realHome + "/", 0) == 0) rest = itemPath.substr(realHome.size());
    else return itemPath;
    // Doubled and trailing slashes name the same place.
    std::string joined = realHome;
    if (const auto parts = components(rest)) {
        for (const std::string_view part : *parts) {
            joined += '/';
            joined += part;
        }
        return joined;
    }
    return realHome + rest;
}

std::optional<PinnedItem> Pinning::pin(const std::string& path, int& error, Resolution how, const EntryReader& reader) {
    const auto parts = components(path);
    if (!parts || parts->empty()) {
        error = EINVAL;
        return std::nullopt;
    }
    std::string parent;
    for (std::size_t i = 0; i + 1 < parts->size(); ++i) {
        parent += '/';
        parent += (*parts)[i];
    }
    if (parent.empty()) parent = "/";
    PinnedItem item;
    item.parent = Descriptor(openFolderNoLinks(parent, how));
    if (!item.parent.valid()) {
        error = errno;
        return std::nullopt;
    }
    item.name = std::string(parts->back());
    item.path = parent == "/" ? "/" + item.name : parent + "/" + item.name;
    errno = 0;
    const auto status = reader(item.parent.get(), item.name.c_str());
    if (!status) {
        error = errno != 0 ? errno : ENOENT;
        return std::nullopt;
    }
    item.status = *status;
    return item;
}

bool Pinning::unchanged(const PinnedItem& item, const EntryReader& reader) {
    const auto status = reader(item.parent.get(), item.name.c_str());
    return status && FileIdentity::of(*status) == item.identity();
}

int openFolderPerComponent(const std::vector<std::string_view>& parts, int folderFlags) {
    int fd = ::open("/", folderFlags);
    for (const std::string_view part : parts) {
        if (fd < 0) return -1;
        const std::string name(part);
        // O_NOFOLLOW with O_DIRECTORY: a link, whatever it points at, fails with ENOTDIR or ELOOP.
        const int next = ::openat(fd, name.c_str(), folderFlags | O_NOFOLLOW);
        const int error = errno;
        ::close(fd);
        errno = error;
        fd = next;
    }
    return fd;
}

}  // namespace brimlet
