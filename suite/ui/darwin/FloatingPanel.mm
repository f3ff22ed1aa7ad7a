// Placeholder until the panel is built.
#include "FloatingPanel.hpp"

namespace kestrow::suite::mac {

struct FloatingPanel::State {};

FloatingPanel::FloatingPanel(NSView*, Size, Size, std::optional<Point>, std::function<void(Point)>, double)
    : state_(std::make_unique<State>()) {}
FloatingPanel::~FloatingPanel() = default;
void FloatingPanel::show() {}
void FloatingPanel::hide() {}
bool FloatingPanel::isVisible() const { return false; }
bool FloatingPanel::isExpanded() const { return false; }
void FloatingPanel::setExpanded(bool) {}
void FloatingPanel::setHovering(bool) {}
void FloatingPanel::setSizes(Size, Size) {}
void FloatingPanel::setIdleAlpha(double) {}
void FloatingPanel::tearDown() {}

}  // namespace kestrow::suite::mac
