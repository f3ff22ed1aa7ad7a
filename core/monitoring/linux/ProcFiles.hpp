// Small helpers for reading Linux pseudo-files without iostreams.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brimlet::linuxfs {

// A growing byte buffer that is reused from read to read, so that a sweep over every process
// allocates nothing once it has seen the largest file.
class FileBuffer {
public:
    std::string_view text() const { return {data_.get(), length_}; }

    // Reads from the file's current position to its end. Pseudo-files report a size of 0, so this
    // reads until read() says there is no more.
    bool readToEnd(int fd);
    // Reads the file again from its start through a descriptor kept open. Only for files the kernel
    // produces in one piece (the per-process stat, status and io): for those a read that leaves room
    // in the buffer has returned everything.
    bool rereadWhole(int fd);

private:
    void reserve(std::size_t capacity);

    std::unique_ptr<char[]> data_;
    std::size_t capacity_ = 0;
    std::size_t length_ = 0;
};

// Reads the whole file into buffer (reused across calls to spare allocations); false when it
// cannot be opened or read.
bool readFile(const char* path, std::string& buffer);
std::optional<std::string> readFile(const std::string& path);
// The same relative to an open folder.
bool readFileAt(int folder, const char* name, FileBuffer& buffer);
std::optional<std::string> readLink(const std::string& path);
std::optional<std::string> readLinkAt(int folder, const char* name);
// CLOCK_MONOTONIC, which stops while the machine sleeps: the time base of every rate.
std::chrono::nanoseconds uptime();

// A file descriptor closed when it goes out of scope.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1);

private:
    int fd_ = -1;
};

// A pseudo-file of /proc or /sys kept open between samples and read again from its start, which
// spares an open and a close per sample. The kernel writes such a file afresh on every read from
// offset 0. A file that stops answering (its device went away) is opened again once, then
// reported unreadable until a later call finds it.
class KeptFile {
public:
    explicit KeptFile(std::string path) : path_(std::move(path)) {}
    // The whole file; valid until the next read.
    std::optional<std::string_view> read();
    const std::string& path() const { return path_; }

private:
    bool reread();

    std::string path_;
    Descriptor fd_;
    FileBuffer buffer_;
};

}  // namespace brimlet::linuxfs
