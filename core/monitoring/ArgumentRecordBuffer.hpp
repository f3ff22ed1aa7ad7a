// A buffer for the kernel's argument records, kept from one read to the next.
//
// The kernel wants room for its largest argument area (kern.argmax, about 1 MiB) on every read,
// and the in-use check of the cleanup reads every process's arguments for every item. Allocating
// and clearing that much per read costs more than the read itself, so each thread keeps one buffer
// and the parser only ever sees the bytes the latest read wrote.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ProcessReader.hpp"

namespace brimlet {

class ArgumentRecordBuffer {
public:
    // A record shorter than its 4-byte count and one more byte carries no arguments.
    static constexpr std::size_t minimumRecord = 5;

    // Makes room for `capacity` bytes (growing, never clearing), lets `fill(bytes, capacity)` write
    // one record and return its length (none when the read failed), then parses that many bytes.
    template <typename Fill>
    std::optional<std::vector<std::string>> read(std::size_t capacity, Fill&& fill) {
        if (capacity < minimumRecord) return std::nullopt;
        if (capacity > capacity_) {
            bytes_.reset(new char[capacity]);
            capacity_ = capacity;
        }
        const std::optional<std::size_t> length = fill(bytes_.get(), capacity);
        if (!length || *length < minimumRecord || *length > capacity) return std::nullopt;
        return ProcessReader::parseProcArgs(std::string_view(bytes_.get(), *length));
    }

    std::size_t capacity() const { return capacity_; }

private:
    std::unique_ptr<char[]> bytes_;
    std::size_t capacity_ = 0;
};

}  // namespace brimlet
