// Lets work that may outlive its owner find out whether the owner is still there. Results come back
// to the main loop later than the call that asked for them, and by then the store or controller
// that asked may be gone; a callback that touched it would use freed memory.
//
// The owner holds a `WeakGuard` member, declared after everything its callbacks touch so that it is
// destroyed first, and wraps each such callback with `wrap`: once the guard is destroyed (or
// `invalidate` is called, typically first thing in the owner's destructor) the wrapped callback does
// nothing. Weak references may be copied to and carried through any thread, but they are checked,
// like the guard is destroyed, on the owner's thread only; debug builds assert that.
#pragma once

#include <cassert>
#include <memory>
#include <thread>
#include <utility>

namespace kestrow {

class WeakGuard {
public:
    WeakGuard() : owner_(std::make_shared<const std::thread::id>(std::this_thread::get_id())) {}
    ~WeakGuard() { invalidate(); }
    WeakGuard(const WeakGuard&) = delete;
    WeakGuard& operator=(const WeakGuard&) = delete;

    class Weak {
    public:
        Weak() = default;
        // Whether the owner is still there. Only on the owner's thread: elsewhere the answer could be
        // out of date before it is used.
        explicit operator bool() const {
            const std::shared_ptr<const std::thread::id> owner = owner_.lock();
            assert(!owner || *owner == std::this_thread::get_id());
            return owner != nullptr;
        }

    private:
        friend class WeakGuard;
        explicit Weak(std::weak_ptr<const std::thread::id> owner) : owner_(std::move(owner)) {}
        std::weak_ptr<const std::thread::id> owner_;
    };

    Weak weak() const { return Weak(owner_); }

    // `callback`, made to do nothing once the owner is gone.
    template <typename Callback>
    auto wrap(Callback callback) const {
        return [weak = weak(), callback = std::move(callback)](auto&&... arguments) mutable {
            if (weak) callback(std::forward<decltype(arguments)>(arguments)...);
        };
    }

    // From now on every weak reference reads as gone.
    void invalidate() {
        assert(!owner_ || *owner_ == std::this_thread::get_id());
        owner_.reset();
    }

private:
    std::shared_ptr<const std::thread::id> owner_;
};

}  // namespace kestrow
