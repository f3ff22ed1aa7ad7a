// Runs submitted work one call at a time, in submission order, on a thread of its own. Classes whose
// state must never be touched by two calls at once own one and route every public call through it.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "MainLoop.hpp"

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

    // Post and reply: runs `work` here and hands its result back to `loop`'s thread as `then`, with
    // no thread blocked waiting for it. One job does both, so a call wakes this thread once and
    // takes its lock once: a second job queued behind would make the caller wait on the lock
    // while this thread is already running the first. `then` (with whatever it holds) is released
    // on the loop's thread, never on this one.
    template <typename F, typename Then>
    void submitReplying(F&& work, MainLoop& loop, Then then) {
        using R = std::invoke_result_t<F&>;
        enqueue([work = std::forward<F>(work), &loop, then = std::make_shared<Then>(std::move(then))]() mutable {
            // A result the work could not produce (it threw) is dropped: there is nothing to hand on.
            std::optional<R> value;
            try {
                value.emplace(work());
            } catch (...) {
                loop.post([then = std::move(then)] {});
                return;
            }
            loop.post([then = std::move(then), value = std::move(*value)]() mutable { (*then)(std::move(value)); });
        });
    }

    // The same for work submitted earlier: jobs run in order, so the job queued now runs after the
    // work and finds its result ready.
    template <typename T, typename Then>
    void replyWhenReady(std::future<T> pending, MainLoop& loop, Then then) {
        submitReplying([pending = std::make_shared<std::future<T>>(std::move(pending))] { return pending->get(); },
                       loop, std::move(then));
    }

    // Returns once every job submitted so far has run, replies included: an owner that is going away
    // calls it so that nothing posts to a loop after the owner (and what it guarantees) is gone.
    // Not from the executor's own thread.
    void waitUntilIdle();

    // True on the executor's own thread; work running there must not wait on its own futures.
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

private:
    void enqueue(std::function<void()> job);
    void loop();

    std::string name_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
    std::condition_variable idle_;
    bool running_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace kestrow
