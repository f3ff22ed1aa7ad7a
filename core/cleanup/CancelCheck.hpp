// The one way the cleanup subsystem asks whether the user stopped the work. An empty check means
// "never cancelled" everywhere, so no caller has to invent a dummy and no callee has to guard a call.
//
// Measuring runs on several threads at once, and all of them poll the same check: the function it
// wraps must be safe to call from several threads (an atomic flag is the usual choice).
#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace brimlet {

class CancelCheck {
public:
    CancelCheck() = default;
    CancelCheck(std::nullptr_t) {}  // NOLINT: nullptr reads as "never cancelled"
    template <typename F, typename = std::enable_if_t<std::is_invocable_r_v<bool, F&> &&
                                                      !std::is_same_v<std::decay_t<F>, CancelCheck>>>
    CancelCheck(F&& test) : test_(std::forward<F>(test)) {}  // NOLINT: any bool() callable converts

    // True when the work should stop; always false for an empty test.
    bool operator()() const { return test_ && test_(); }
    bool isEmpty() const { return !test_; }

private:
    std::function<bool()> test_;
};

}  // namespace brimlet
