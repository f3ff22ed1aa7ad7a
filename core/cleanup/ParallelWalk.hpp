// A few threads walking folder trees together, for walks whose outcome does not depend on the order
// entries are met in (measuring). Each thread runs its own TreeWalk. When a walk has just opened and
// checked a folder and fewer folders wait than the crew has room for, it hands that descriptor over
// instead of entering the folder itself, and the next free thread walks it. With no room left the
// walk goes on depth first in its own thread, as a lone walk does. So what is held stays bounded
// whatever the tree: at most `room` folders wait (one descriptor each, no listing), and each thread
// holds what one TreeWalk holds.
//
// Everything a lone walk promises still holds, because every folder is still opened by a TreeWalk
// through the descriptor of the folder that listed it, never following a link, and checked against
// the status it was listed with; a folder handed over is walked by exactly one thread.
#pragma once

#include <dirent.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "EntryStatus.hpp"
#include "TreeWalk.hpp"

namespace brimlet {

class ParallelWalk {
public:
    // A folder to walk: opened and checked, waiting for a thread.
    struct Folder {
        DIR* dir = nullptr;
        EntryStatus status;
        std::string path;  // for texts
        // Where it lies below its tree's root (see TreeWalk::position); empty for the root.
        std::vector<std::size_t> position;
        std::size_t tree = 0;
    };
    // The root folder of tree `tree`, opened; none when there is no folder to walk there.
    using Open = std::function<std::optional<Folder>(std::size_t tree)>;
    // Walks `folder` on thread `thread` (0 is the caller's), taking its descriptor over.
    using Walk = std::function<void(unsigned thread, Folder& folder)>;
    // Every folder of tree `tree` has been walked (or let go after a stop).
    using Finished = std::function<void(std::size_t tree)>;

    // `threads` walk at once, the caller's included; at most `room` folders wait.
    ParallelWalk(unsigned threads, std::size_t room);
    ~ParallelWalk();
    ParallelWalk(const ParallelWalk&) = delete;
    ParallelWalk& operator=(const ParallelWalk&) = delete;

    // Walks trees 0 ... trees − 1 and returns when every folder of each has been walked or let go.
    // The trees are opened in order, one at a time, by whichever thread is free; a waiting folder
    // goes before the next tree, so the trees under way finish first.
    void run(std::size_t trees, const Open& open, const Walk& walk, const Finished& finished = {});

    // Lets `walk`, which is walking `from`, hand the folders it opens over to the other threads.
    void share(TreeWalk& walk, const Folder& from);

    // No more folders are walked: those waiting are let go, trees not yet opened are still opened
    // but not walked, and walks under way should stop at their next entry (they ask `stopped`).
    void stop() { stopped_.store(true, std::memory_order_relaxed); }
    bool stopped() const { return stopped_.load(std::memory_order_relaxed); }

    unsigned threads() const { return threads_; }
    std::size_t room() const { return room_; }
    // The most folders that waited at once, and how many were handed over (for the tests of the bound).
    std::size_t peakWaiting() const;
    std::size_t handedOver() const;

private:
    bool offer(const TreeWalk& walk, DIR* dir, const Folder& from);
    void work(unsigned thread, std::size_t trees, const Open& open, const Walk& walk, const Finished& finished);
    void letGo(Folder& folder);

    const unsigned threads_;
    const std::size_t room_;
    std::atomic<bool> stopped_{false};
    std::atomic<std::size_t> waitingCount_{0};  // read without the lock to decline quickly

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Folder> waiting_;
    std::vector<std::size_t> unfinished_;  // per tree: folders handed over or under way
    std::size_t nextTree_ = 0;
    std::size_t busy_ = 0;
    std::size_t peakWaiting_ = 0;
    std::size_t handedOver_ = 0;
};

}  // namespace brimlet
