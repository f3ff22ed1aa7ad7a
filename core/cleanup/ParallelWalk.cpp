#include "ParallelWalk.hpp"

#include <algorithm>
#include <system_error>
#include <thread>

namespace brimlet {

ParallelWalk::ParallelWalk(unsigned threads, std::size_t room) : threads_(std::max(threads, 1u)), room_(room) {}

ParallelWalk::~ParallelWalk() {
    for (Folder& folder : waiting_) letGo(folder);
}

void ParallelWalk::letGo(Folder& folder) {
    if (folder.dir) ::closedir(folder.dir);
    folder.dir = nullptr;
}

std::size_t ParallelWalk::peakWaiting() const {
    std::lock_guard lock(mutex_);
    return peakWaiting_;
}

std::size_t ParallelWalk::handedOver() const {
    std::lock_guard lock(mutex_);
    return handedOver_;
}

void ParallelWalk::share(TreeWalk& walk, const Folder& from) {
    // Alone, there is nobody to hand a folder to: the walk stays exactly a lone walk.
    if (threads_ < 2 || room_ == 0) return;
    walk.handOff = [this, &walk, &from](DIR* dir) { return offer(walk, dir, from); };
}

bool ParallelWalk::offer(const TreeWalk& walk, DIR* dir, const Folder& from) {
    // Declining costs one load: a full crew is the common case in a big tree.
    if (stopped() || waitingCount_.load(std::memory_order_relaxed) >= room_) return false;
    std::vector<std::size_t> position = from.position;
    for (std::size_t place : walk.position()) position.push_back(place);
    Folder folder{dir, walk.currentStatus(), walk.currentPath(), std::move(position), from.tree};
    {
        std::lock_guard lock(mutex_);
        if (waiting_.size() >= room_) return false;
        waiting_.push_back(std::move(folder));
        ++unfinished_[from.tree];
        ++handedOver_;
        peakWaiting_ = std::max(peakWaiting_, waiting_.size());
        waitingCount_.store(waiting_.size(), std::memory_order_relaxed);
    }
    changed_.notify_one();
    return true;
}

void ParallelWalk::work(unsigned thread, std::size_t trees, const Open& open, const Walk& walk,
                        const Finished& finished) {
    std::unique_lock lock(mutex_);
    for (;;) {
        std::optional<Folder> folder;
        std::size_t tree = 0;
        if (!waiting_.empty()) {
            folder = std::move(waiting_.front());
            waiting_.pop_front();
            waitingCount_.store(waiting_.size(), std::memory_order_relaxed);
            tree = folder->tree;
            ++busy_;
            lock.unlock();
        } else if (nextTree_ < trees) {
            tree = nextTree_++;
            unfinished_[tree] = 1;
            ++busy_;
            lock.unlock();
            folder = open(tree);
            if (folder) folder->tree = tree;
        } else if (busy_ == 0) {
            // Nothing waits, nothing is under way that could hand more over: all is walked.
            changed_.notify_all();
            return;
        } else {
            changed_.wait(lock);
            continue;
        }

        if (folder) {
            if (stopped()) letGo(*folder);
            else walk(thread, *folder);
        }
        lock.lock();
        --busy_;
        if (--unfinished_[tree] == 0 && finished) {
            lock.unlock();
            finished(tree);
            lock.lock();
        }
        if (busy_ == 0) changed_.notify_all();
    }
}

void ParallelWalk::run(std::size_t trees, const Open& open, const Walk& walk, const Finished& finished) {
    {
        std::lock_guard lock(mutex_);
        unfinished_.assign(trees, 0);
        nextTree_ = 0;
        busy_ = 0;
    }
    std::vector<std::thread> helpers;
    helpers.reserve(threads_ - 1);
    for (unsigned i = 1; i < threads_; ++i) {
        try {
            helpers.emplace_back([this, i, trees, &open, &walk, &finished] { work(i, trees, open, walk, finished); });
        } catch (const std::system_error&) {
            break;  // no thread to be had: the ones running (and this one) walk it all
        }
    }
    work(0, trees, open, walk, finished);
    for (std::thread& helper : helpers) helper.join();
}

}  // namespace brimlet
