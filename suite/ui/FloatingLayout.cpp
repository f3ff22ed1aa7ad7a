#include "FloatingLayout.hpp"

#include <algorithm>

namespace kestrow::suite {

namespace FloatingLayout {

Rect initialFrame(Size size, const Rect& visible) {
    return {{visible.maxX() - cornerInset - size.width, visible.maxY() - cornerInset - size.height}, size};
}

std::optional<Rect> restoredFrame(std::optional<Point> topLeft, Size size, const std::vector<Rect>& visibleFrames) {
    if (!topLeft) return std::nullopt;
    for (const Rect& visible : visibleFrames)
        if (visible.insetBy(onScreenInset).contains(*topLeft))
            return clamped({{topLeft->x, topLeft->y - size.height}, size}, visible);
    return std::nullopt;
}

Rect resized(const Rect& frame, Size to, const Rect& visible) {
    const bool nearRight = visible.maxX() - frame.maxX() <= edgeSnap;
    const bool nearBottom = frame.minY() - visible.minY() <= edgeSnap;
    const double x = nearRight ? frame.maxX() - to.width : frame.minX();
    const double y = nearBottom ? frame.minY() : frame.maxY() - to.height;
    return clamped({{x, y}, to}, visible);
}

Rect clamped(const Rect& frame, const Rect& visible) {
    // max first, then min: when the frame is wider or taller than the area the min wins, which keeps
    // the right and top edges (and with them the bar's controls) on screen.
    const double x = std::min(std::max(frame.minX(), visible.minX()), visible.maxX() - frame.size.width);
    const double y = std::min(std::max(frame.minY(), visible.minY()), visible.maxY() - frame.size.height);
    return {{x, y}, frame.size};
}

}  // namespace FloatingLayout

}  // namespace kestrow::suite
