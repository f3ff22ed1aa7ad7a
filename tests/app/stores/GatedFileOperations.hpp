// File operations for the cleanup tests: the real Trash and removal held shut at the first item until
// the test opens the gate, and ones that fail as a full or read-only disk would.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "core/cleanup/Cleaner.hpp"

namespace brimlet::testing {

// The real Trash, held shut at the first item until the test opens the gate.
class GatedFileOperations final : public FileOperations {
public:
    kestrow::Status moveToTrash(const PinnedItem& item) override {
        wait();
        return live_.moveToTrash(item);
    }
    kestrow::Status removePermanently(const PinnedItem& item) override {
        wait();
        return live_.removePermanently(item);
    }
    // Waits in real time for the cleaner to arrive at the gate.
    bool awaitReached(double seconds) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return reached_; });
    }
    void open() {
        std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

private:
    void wait() {
        std::unique_lock lock(mutex_);
        reached_ = true;
        changed_.notify_all();
        changed_.wait(lock, [&] { return open_; });
    }
    LiveFileOperations live_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool reached_ = false, open_ = false;
};

// The Trash and removal refusing every item, as a volume gone read-only would.
class FailingFileOperations final : public FileOperations {
public:
    kestrow::Status moveToTrash(const PinnedItem&) override {
        return kestrow::Status::failure("Read-only file system");
    }
    kestrow::Status removePermanently(const PinnedItem&) override {
        return kestrow::Status::failure("Read-only file system");
    }
};

}  // namespace brimlet::testing
