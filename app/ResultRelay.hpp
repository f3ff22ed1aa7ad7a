// Brings the results of work done on other executors back to the main loop. The engines return
// futures; a store on the main loop must never block on one, so a relay thread of its own waits for
// each future in turn and posts the result, together with what to do with it, to the loop.
#pragma once

#include <future>
#include <string>
#include <utility>

#include "base/MainLoop.hpp"
#include "base/SerialExecutor.hpp"

namespace brimlet {

class ResultRelay {
public:
    ResultRelay(kestrow::MainLoop& loop, std::string name) : loop_(loop), waiter_(std::move(name)) {}

    // `onResult` runs on the loop's thread with the value. The owner guards it against running after
    // the owner is gone (the relay itself may already be destroyed by then).
    template <typename T, typename F>
    void deliver(std::future<T> future, F onResult) {
        (void)waiter_.submit([&loop = loop_, future = std::move(future), onResult = std::move(onResult)]() mutable {
            loop.post([value = future.get(), onResult = std::move(onResult)]() mutable { onResult(std::move(value)); });
        });
    }

private:
    kestrow::MainLoop& loop_;
    kestrow::SerialExecutor waiter_;  // its destructor waits for the futures already handed over
};

}  // namespace brimlet
