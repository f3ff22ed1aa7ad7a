// Points, sizes and rectangles as the window system counts them, in points, for the layout rules
// that are tested without one (the Dock's badges, the floating bars). Which way y grows is the
// caller's: each rule says which coordinates it takes.
#pragma once

namespace kestrow {

struct Point {
    double x = 0, y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0, height = 0;
    bool operator==(const Size&) const = default;
};

// An origin and a size. A negative width or height spans leftwards or downwards from the origin
// (Accessibility reports such frames); the edges below are those of the area it covers.
struct Rect {
    Point origin;
    Size size;

    double minX() const { return size.width < 0 ? origin.x + size.width : origin.x; }
    double maxX() const { return size.width < 0 ? origin.x : origin.x + size.width; }
    double minY() const { return size.height < 0 ? origin.y + size.height : origin.y; }
    double maxY() const { return size.height < 0 ? origin.y : origin.y + size.height; }
    double absoluteWidth() const { return maxX() - minX(); }
    double absoluteHeight() const { return maxY() - minY(); }
    // With y growing upwards.
    Point topLeft() const { return {minX(), maxY()}; }
    // Shrinks by `d` on every side; an inset larger than the rectangle leaves an empty one.
    Rect insetBy(double d) const;
    // Half open, like the window server: the left and bottom edges belong to it, the others not.
    bool contains(Point p) const;
    // True when `inner` lies wholly inside this rectangle, edges included.
    bool contains(const Rect& inner) const;

    bool operator==(const Rect&) const = default;
};

}  // namespace kestrow
