// Where the suite's floating bar goes on screen. Plain rectangles in screen coordinates with the
// origin at the bottom left (y grows upwards), as the window server counts them.
#pragma once

#include <optional>
#include <vector>

namespace kestrow::suite {

struct Point {
    double x = 0, y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0, height = 0;
    bool operator==(const Size&) const = default;
};

struct Rect {
    Point origin;
    Size size;

    double minX() const { return origin.x; }
    double minY() const { return origin.y; }
    double maxX() const { return origin.x + size.width; }
    double maxY() const { return origin.y + size.height; }
    Point topLeft() const { return {origin.x, maxY()}; }
    // Shrinks by `d` on every side; an inset larger than the rectangle leaves an empty one.
    Rect insetBy(double d) const;
    // Half open, like the window server: the left and bottom edges belong to it, the others not.
    bool contains(Point p) const;
    bool operator==(const Rect&) const = default;
};

namespace FloatingLayout {

inline constexpr double cornerInset = 16;
inline constexpr double onScreenInset = 40;
inline constexpr double edgeSnap = 60;

// The top-right corner of the visible area, `cornerInset` in from its right and top edges.
Rect initialFrame(Size size, const Rect& visible);
// The frame at a stored top-left corner, clamped into the first visible area that holds the corner
// at least `onScreenInset` in; none without a corner or when no screen holds it any more.
std::optional<Rect> restoredFrame(std::optional<Point> topLeft, Size size, const std::vector<Rect>& visibleFrames);
// A new size that keeps the bar where the eye expects it: anchored to the right edge when it sits
// within `edgeSnap` of the screen's right edge, to the bottom when within `edgeSnap` of the bottom.
Rect resized(const Rect& frame, Size to, const Rect& visible);
// Moved inside the visible area; a frame larger than the area keeps its right and top edges inside.
Rect clamped(const Rect& frame, const Rect& visible);

}  // namespace FloatingLayout

}  // namespace kestrow::suite
