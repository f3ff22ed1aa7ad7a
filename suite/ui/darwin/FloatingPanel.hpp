// The borderless, non-activating panel that floats a small bar above every window: the suite's
// floating bar and the monitor's own floating monitor both sit in one. Objective-C++ only.
#pragma once

#import <AppKit/AppKit.h>

#include <functional>
#include <memory>
#include <optional>

#include "suite/ui/FloatingLayout.hpp"

namespace kestrow::suite::mac {

// A stretchable rounded rectangle to mask a panel's material with: the blur behind the panel and
// the window's shadow then follow the panel's rounded corners.
NSImage* roundedMask(CGFloat cornerRadius);

class FloatingPanel {
public:
    // `content` becomes the panel's content view; the panel itself is made on the first `show`, at
    // the stored top-left corner when a screen still holds it, else at the main screen's top right.
    FloatingPanel(NSView* content, Size barSize, Size expandedSize, std::optional<Point> topLeft,
                  std::function<void(Point topLeft)> onMove, double idleAlpha);
    ~FloatingPanel();
    FloatingPanel(const FloatingPanel&) = delete;
    FloatingPanel& operator=(const FloatingPanel&) = delete;

    void show();
    void hide();
    bool isVisible() const;
    bool isExpanded() const;
    void setExpanded(bool expanded);
    void setHovering(bool hovering);
    // New sizes (a different look or number of rows); applied like an expansion.
    void setSizes(Size barSize, Size expandedSize);
    void setIdleAlpha(double alpha);
    // Detaches the delegate and the content and closes the panel; harmless twice.
    void tearDown();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace kestrow::suite::mac
