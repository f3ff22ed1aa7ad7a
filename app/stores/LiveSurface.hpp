// A window that shows live figures counts once among the monitor store's visible surfaces for as
// long as the user can see it. The window system reports the same state more than once (a window
// brought forward while already on screen, a close after a miniaturise), so only real transitions
// reach the store: every appearance is matched by exactly one disappearance.
#pragma once

#include <functional>
#include <utility>

namespace brimlet {

class LiveSurface {
public:
    LiveSurface(std::function<void()> appeared, std::function<void()> disappeared)
        : appeared_(std::move(appeared)),
          disappeared_(std::move(disappeared)) {}
    // A surface that goes away while on screen stops counting with it.
    ~LiveSurface() { setOnScreen(false); }
    LiveSurface(const LiveSurface&) = delete;
    LiveSurface& operator=(const LiveSurface&) = delete;

    // On screen: shown and not miniaturised. Off screen: closed, miniaturised or hidden.
    void setOnScreen(bool onScreen) {
        if (onScreen == counted_) return;
        counted_ = onScreen;
        if (onScreen) {
            if (appeared_) appeared_();
        } else if (disappeared_) {
            disappeared_();
        }
    }
    bool isCounted() const { return counted_; }

private:
    std::function<void()> appeared_;
    std::function<void()> disappeared_;
    bool counted_ = false;
};

}  // namespace brimlet
