#include "ProcFiles.hpp"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace brimlet::linuxfs {

namespace {

constexpr std::size_t initialCapacity = 4096;

}  // namespace

void FileBuffer::reserve(std::size_t capacity) {
    if (capacity <= capacity_) return;
    auto grown = std::make_unique<char[]>(capacity);
    if (length_ > 0) std::memcpy(grown.get(), data_.get(), length_);
    data_ = std::move(grown);
    capacity_ = capacity;
}

bool FileBuffer::readToEnd(int fd) {
    reserve(initialCapacity);
    length_ = 0;
    for (;;) {
        if (length_ == capacity_) reserve(capacity_ * 2);
        const ssize_t n = ::read(fd, data_.get() + length_, capacity_ - length_);
        if (n < 0) {
            if (errno == EINTR) continue;
            length_ = 0;
            return false;
        }
        if (n == 0) return true;
        length_ += static_cast<std::size_t>(n);
    }
}

bool FileBuffer::rereadWhole(int fd) {
    reserve(initialCapacity);
    length_ = 0;
    for (;;) {
        const ssize_t n = ::pread(fd, data_.get() + length_, capacity_ - length_, static_cast<off_t>(length_));
        if (n < 0) {
            if (errno == EINTR) continue;
            length_ = 0;
            return false;
        }
        length_ += static_cast<std::size_t>(n);
        if (length_ < capacity_) return true;  // room left: the kernel had no more to give
        reserve(capacity_ * 2);
    }
}

bool readFile(const char* path, std::string& buffer) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    if (buffer.capacity() < initialCapacity) buffer.reserve(initialCapacity);
    buffer.resize(buffer.capacity());
    std::size_t used = 0;
    bool ok = true;
    for (;;) {
        if (used == buffer.size()) buffer.resize(buffer.size() * 2);
        const ssize_t n = ::read(fd, buffer.data() + used, buffer.size() - used);
        if (n < 0) {
            if (errno == EINTR) continue;
            ok = false;
            break;
        }
        if (n == 0) break;
        used += static_cast<std::size_t>(n);
    }
    ::close(fd);
    buffer.resize(ok ? used : 0);
    return ok;
}

std::optional<std::string> readFile(const std::string& path) {
    std::string buffer;
    if (!readFile(path.c_str(), buffer)) return std::nullopt;
    return buffer;
}

bool readFileAt(int folder, const char* name, FileBuffer& buffer) {
    const Descriptor fd(::openat(folder, name, O_RDONLY | O_CLOEXEC));
    return fd.valid() && buffer.readToEnd(fd.get());
}

std::optional<std::string> readLink(const std::string& path) { return readLinkAt(AT_FDCWD, path.c_str()); }

std::optional<std::string> readLinkAt(int folder, const char* name) {
    std::string target(4096, '\0');
    const ssize_t n = ::readlinkat(folder, name, target.data(), target.size());
    if (n < 1) return std::nullopt;
    target.resize(static_cast<std::size_t>(n));
    return target;
}

std::chrono::nanoseconds uptime() {
    timespec ts{};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return std::chrono::seconds(ts.tv_sec) + std::chrono::nanoseconds(ts.tv_nsec);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
}

void Descriptor::reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
}

bool KeptFile::reread() {
    if (!fd_.valid()) fd_.reset(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    return fd_.valid() && buffer_.rereadWhole(fd_.get());
}

std::optional<std::string_view> KeptFile::read() {
    const bool wasOpen = fd_.valid();
    if (reread()) return buffer_.text();
    fd_.reset();
    if (wasOpen && reread()) return buffer_.text();
    fd_.reset();
    return std::nullopt;
}

}  // namespace brimlet::linuxfs
