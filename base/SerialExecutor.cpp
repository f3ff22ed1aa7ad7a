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
        }
        job();
    }
}

}  // namespace kestrow
