#include "Geometry.hpp"

#include <algorithm>

namespace kestrow {

Rect Rect::insetBy(double d) const {
    return {{minX() + d, minY() + d},
            {std::max(0.0, absoluteWidth() - 2 * d), std::max(0.0, absoluteHeight() - 2 * d)}};
}

bool Rect::contains(Point p) const {
    return absoluteWidth() > 0 && absoluteHeight() > 0 && p.x >= minX() && p.x < maxX() && p.y >= minY() &&
           p.y < maxY();
}

bool Rect::contains(const Rect& inner) const {
    return inner.minX() >= minX() && inner.maxX() <= maxX() && inner.minY() >= minY() && inner.maxY() <= maxY();
}

}  // namespace kestrow
