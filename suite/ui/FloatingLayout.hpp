// Where the suite's floating bar goes on screen: rectangles in screen coordinates with the origin at
// the bottom left (y grows upwards), as the window server counts them.
#pragma once

#include <optional>
#include <vector>

#include "base/Geometry.hpp"

namespace kestrow::suite {

using kestrow::Point;
using kestrow::Rect;
using kestrow::Size;

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
