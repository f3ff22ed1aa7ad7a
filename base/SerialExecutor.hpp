// Runs submitted work one call at a time, in submission order, on a thread of its own. Classes whose
// state must never be touched by two calls at once own one and route every public call through it.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>

namespace kestrow {

class SerialExecutor {
public:
    explicit SerialExecutor(std::string name = "serial");
    ~SerialExecutor();  // finishes the work already queued, then joins
    SerialExecutor(const SerialExecutor&) = delete;
    SerialExecutor& operator=(const SerialExecutor&) = delete;

    // The future carries the result, or the exception the work threw: whoever submits looks at it.
    template <typename F>
    [[nodiscard]] auto submit(F&& work) -> std::future<std::invoke_result_t<F&>> {
        using R = std::invoke_result_t<F&>;
        auto task = std::make_shared<std::packaged_task<R()>>(std::forward<F>(work));
        std::future<R> result = task->get_future();
        enqueue([task] { (*task)(); });
        return result;
    }

    // True on the executor's own thread; work running there must not wait on its own futures.
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

private:
    void enqueue(std::function<void()> job);
    void loop();

    std::string name_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace kestrow
