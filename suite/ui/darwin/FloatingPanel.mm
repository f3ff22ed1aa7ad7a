// The floating panel: a borderless, non-activating NSPanel on every desktop, placed and resized by
// FloatingLayout. Compiled with ARC.
#include "FloatingPanel.hpp"

#include <vector>

@interface KestrowFloatingPanelDelegate : NSObject <NSWindowDelegate>
- (instancetype)initWithOnMove:(std::function<void(kestrow::suite::Point)>)onMove;
@end

@implementation KestrowFloatingPanelDelegate {
    std::function<void(kestrow::suite::Point)> _onMove;
}

- (instancetype)initWithOnMove:(std::function<void(kestrow::suite::Point)>)onMove {
    if ((self = [super init])) _onMove = std::move(onMove);
    return self;
}

- (void)windowDidMove:(NSNotification*)notification {
    NSWindow* window = notification.object;
    // The stored corner is the top left: the bar hangs from it whatever its height.
    if (_onMove) _onMove({NSMinX(window.frame), NSMaxY(window.frame)});
}

@end

namespace kestrow::suite::mac {

namespace {

// Where no screen can be asked (none attached yet), the size of a common laptop panel.
constexpr Rect fallbackVisibleFrame{{0, 0}, {1440, 875}};

Rect toRect(NSRect r) { return {{r.origin.x, r.origin.y}, {r.size.width, r.size.height}}; }
NSRect toNSRect(const Rect& r) { return NSMakeRect(r.origin.x, r.origin.y, r.size.width, r.size.height); }

Rect visibleFrameOf(NSScreen* screen) {
    if (screen == nil) screen = NSScreen.mainScreen;
    return screen ? toRect(screen.visibleFrame) : fallbackVisibleFrame;
}

} // namespace

struct FloatingPanel::State {
    NSView* content = nil;
    Size barSize, expandedSize;
    std::optional<Point> topLeft;
    KestrowFloatingPanelDelegate* delegate = nil;
    double idleAlpha = 1;
    bool hovering = false;
    bool expanded = false;
    bool tornDown = false;
    NSPanel* panel = nil;

    Size size() const { return expanded ? expandedSize : barSize; }
    double alpha() const { return hovering ? 1.0 : idleAlpha; }

    Rect firstFrame() const {
        std::vector<Rect> visible;
        for (NSScreen* screen in NSScreen.screens)
            visible.push_back(toRect(screen.visibleFrame));
        if (std::optional<Rect> restored = FloatingLayout::restoredFrame(topLeft, size(), visible)) return *restored;
        return FloatingLayout::initialFrame(size(), visibleFrameOf(nil));
    }

    void make() {
        panel = [[NSPanel alloc]
            initWithContentRect:toNSRect(firstFrame())
                      styleMask:NSWindowStyleMaskNonactivatingPanel | NSWindowStyleMaskFullSizeContentView
                        backing:NSBackingStoreBuffered
                          defer:NO];
        panel.floatingPanel = YES;
        panel.level = NSFloatingWindowLevel; // 3: above documents, below menus and the Dock
        panel.collectionBehavior =
            NSWindowCollectionBehaviorCanJoinAllSpaces | NSWindowCollectionBehaviorFullScreenAuxiliary;
        panel.hidesOnDeactivate = NO; // an accessory app is almost never active: the bar must stay
        panel.becomesKeyOnlyIfNeeded = YES;
        panel.opaque = NO;
        panel.backgroundColor = NSColor.clearColor;
        panel.hasShadow = YES;
        panel.movableByWindowBackground = YES;
        panel.sharingType = NSWindowSharingReadOnly;
        panel.releasedWhenClosed = NO; // ARC owns it
        panel.contentView = content;
        panel.delegate = delegate;
    }

    // A new size applied the way the eye expects, within the panel's own screen.
    void applySize() {
        if (panel == nil) return;
        const Rect current = toRect(panel.frame);
        if (current.size == size()) return;
        const Rect frame = FloatingLayout::resized(current, size(), visibleFrameOf(panel.screen));
        [panel setFrame:toNSRect(frame) display:YES animate:panel.visible];
    }
};

FloatingPanel::FloatingPanel(NSView* content, Size barSize, Size expandedSize, std::optional<Point> topLeft,
                             std::function<void(Point topLeft)> onMove, double idleAlpha)
    : state_(std::make_unique<State>()) {
    state_->content = content;
    state_->barSize = barSize;
    state_->expandedSize = expandedSize;
    state_->topLeft = topLeft;
    state_->idleAlpha = idleAlpha;
    // Later moves update the corner a panel made again would start from.
    state_->delegate = [[KestrowFloatingPanelDelegate alloc]
        initWithOnMove:[state = state_.get(), onMove = std::move(onMove)](Point corner) {
            state->topLeft = corner;
            if (onMove) onMove(corner);
        }];
}

FloatingPanel::~FloatingPanel() { tearDown(); }

void FloatingPanel::show() {
    if (state_->tornDown) return;
    if (state_->panel == nil) state_->make();
    state_->panel.alphaValue = state_->alpha();
    // Regardless: the application is an accessory that is usually not active.
    [state_->panel orderFrontRegardless];
}

void FloatingPanel::hide() {
    if (state_->panel != nil) [state_->panel orderOut:nil];
}

bool FloatingPanel::isVisible() const { return state_->panel != nil && state_->panel.visible; }

bool FloatingPanel::isExpanded() const { return state_->expanded; }

void FloatingPanel::setExpanded(bool expanded) {
    if (state_->expanded == expanded) return;
    state_->expanded = expanded;
    state_->applySize();
}

void FloatingPanel::setHovering(bool hovering) {
    state_->hovering = hovering;
    if (state_->panel != nil) state_->panel.alphaValue = state_->alpha();
}

void FloatingPanel::setSizes(Size barSize, Size expandedSize) {
    state_->barSize = barSize;
    state_->expandedSize = expandedSize;
    state_->applySize();
}

void FloatingPanel::setIdleAlpha(double alpha) {
    state_->idleAlpha = alpha;
    if (state_->panel != nil) state_->panel.alphaValue = state_->alpha();
}

void FloatingPanel::tearDown() {
    if (state_->tornDown) return;
    state_->tornDown = true;
    if (NSPanel* panel = state_->panel) {
        panel.delegate = nil;
        panel.contentView = [[NSView alloc] initWithFrame:NSZeroRect];
        [panel close];
    }
    state_->panel = nil;
    state_->content = nil;
    state_->delegate = nil;
}

NSImage* roundedMask(CGFloat cornerRadius) {
    const CGFloat side = cornerRadius * 2 + 1;
    NSImage* mask = [NSImage imageWithSize:NSMakeSize(side, side)
                                   flipped:NO
                            drawingHandler:^BOOL(NSRect rect) {
                                [NSColor.blackColor setFill];
                                [[NSBezierPath bezierPathWithRoundedRect:rect xRadius:cornerRadius
                                                                 yRadius:cornerRadius] fill];
                                return YES;
                            }];
    mask.capInsets = NSEdgeInsetsMake(cornerRadius, cornerRadius, cornerRadius, cornerRadius);
    mask.resizingMode = NSImageResizingModeStretch;
    return mask;
}

} // namespace kestrow::suite::mac
