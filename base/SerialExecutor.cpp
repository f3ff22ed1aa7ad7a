#include "SerialExecutor.hpp"

#include "ThreadSupport.hpp"

namespace kestrow {

SerialExecutor::SerialExecutor(std::string name) : name_(std::move(name)) {
    thread_ = std::thread([this] { loop(); });
}

SerialExecutor::~SerialExecutor() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void SerialExecutor::waitUntilIdle() {
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [this] { return jobs_.empty() && !running_; });
}

void SerialExecutor::enqueue(std::function<void()> job) {
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
}

void SerialExecutor::loop() {
    thread::nameCurrent(name_);
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
            if (jobs_.empty()) return;  // stopping, and nothing left to run
            job = std::move(jobs_.front());
            jobs_.pop_front();
            running_ = true;
        }
        job();
        job = nullptr;  // what the job held goes before it counts as done
        {
            std::lock_guard lock(mutex_);
            running_ = false;
        }
        idle_.notify_all();
    }
}

}  // namespace kestrow
