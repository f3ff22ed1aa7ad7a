#include "Files.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <algorithm>
#include <cstdlib>
#include <vector>

namespace kestrow {

SafeRead safeRead(const std::string& path, std::size_t limit) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        // Only a missing entry is missing: a plain file where a folder should be (ENOTDIR) is a fault
        // someone must see, not an empty folder.
        if (error == ENOENT) return {SafeRead::Missing{}};
        return {SafeRead::Refused{"unreadable (errno " + std::to_string(error) + ")"}};
    }
    struct stat st{};
    SafeRead result{SafeRead::Refused{"unreadable"}};
    if (::fstat(fd, &st) != 0) {
        ::close(fd);
        return result;
    }
    if (!S_ISREG(st.st_mode)) {
        ::close(fd);
        return {SafeRead::Refused{"not a regular file"}};
    }
    if (st.st_uid != ::getuid()) {
        ::close(fd);
        return {SafeRead::Refused{"not owned by this user"}};
    }
    std::string bytes;
    char buffer[4096];
    while (bytes.size() < limit) {
        const std::size_t want = std::min(sizeof buffer, limit - bytes.size());
        const ssize_t n = ::read(fd, buffer, want);
        if (n < 0) {
            if (errno == EINTR) continue;
            ::close(fd);
            return result;
        }
        if (n == 0) break;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return {SafeRead::Data{std::move(bytes)}};
}

Status writeAtomically(const std::string& path, std::string_view bytes, unsigned mode) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string temporary = folder + "/." + name + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) return Status::failure("cannot create a temporary file (errno " + std::to_string(errno) + ")");
    auto fail = [&](const char* what) {
        const int error = errno;
        ::close(fd);
        ::unlink(temporary.c_str());
        return Status::failure(std::string(what) + " (errno " + std::to_string(error) + ")");
    };
    if (::fchmod(fd, static_cast<mode_t>(mode)) != 0) return fail("cannot set permissions");
    for (std::string_view rest = bytes; !rest.empty();) {
        const ssize_t n = ::write(fd, rest.data(), rest.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return fail("cannot write");
        }
        rest.remove_prefix(static_cast<std::size_t>(n));
    }
    if (::fsync(fd) != 0) return fail("cannot flush");
    if (::close(fd) != 0) {
        ::unlink(temporary.c_str());
        return Status::failure("cannot close (errno " + std::to_string(errno) + ")");
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        return Status::failure("cannot replace (errno " + std::to_string(error) + ")");
    }
    return Status::success();
}

namespace {

void appendComponent(std::vector<std::string>& parts, std::string_view component) {
    if (component.empty() || component == ".") return;
    if (component == "..") {
        if (!parts.empty()) parts.pop_back();
        return;
    }
    parts.emplace_back(component);
}

std::string joinAbsolute(const std::vector<std::string>& parts) {
    if (parts.empty()) return "/";
    std::string out;
    for (const auto& p : parts) out += "/" + p;
    return out;
}

std::vector<std::string> components(std::string_view path) {
    std::vector<std::string> parts;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        appendComponent(parts, path.substr(0, slash));
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    return parts;
}

}  // namespace

std::string standardizePath(std::string_view path) {
    if (path.empty()) return std::string();
    const bool absolute = path.front() == '/';
    const auto parts = components(path);
    if (absolute) return joinAbsolute(parts);
    std::string out;
    for (const auto& p : parts) out += (out.empty() ? "" : "/") + p;
    return out.empty() ? "." : out;
}

std::optional<std::string> canonicalizePath(const std::string& path) {
    if (path == "/") return path;
    std::string current = path;
    std::vector<std::string> missing;  // innermost last
    struct stat st{};
    while (::lstat(current.c_str(), &st) != 0) {
        const std::size_t slash = current.find_last_of('/');
        if (slash == std::string::npos) return std::nullopt;
        missing.push_back(current.substr(slash + 1));
        current = slash == 0 ? "/" : current.substr(0, slash);
        while (current.size() > 1 && current.back() == '/') current.pop_back();
        if (current == "/") break;
    }
    char resolved[PATH_MAX];
    if (!::realpath(current.c_str(), resolved)) return std::nullopt;
    std::vector<std::string> parts = components(resolved);
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) appendComponent(parts, *it);
    return joinAbsolute(parts);
}

std::string realHomeFolder() {
    if (const passwd* entry = ::getpwuid(::getuid()); entry && entry->pw_dir && *entry->pw_dir)
        return entry->pw_dir;
    if (const char* home = std::getenv("HOME")) return home;
    return "/";
}

}  // namespace kestrow
