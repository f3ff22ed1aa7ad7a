// The badges over other applications' Dock icons: after each sample the Dock's icons are read
// through Accessibility and DockLayout decides which get a badge, with what text and where. Each
// badge is a small window of its own that floats over the Dock, never takes a click and never
// activates this application.
#include "MacFrontEnd.hpp"

#import <AppKit/AppKit.h>
#import <CoreGraphics/CoreGraphics.h>

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "DockAccessibility.hpp"
#include "base/Log.hpp"
#include "base/darwin/StringBridge.hpp"
#include "core/desktop/DockLayout.hpp"

namespace {

constexpr CGFloat badgeHeight = 16;
constexpr CGFloat badgeTextPadding = 5; // each side
constexpr CGFloat badgeInset = 2;       // from the icon's top right corner

NSFont* badgeFont() { return [NSFont monospacedDigitSystemFontOfSize:10.5 weight:NSFontWeightSemibold]; }

} // namespace

// A capsule with the figure: a dark glass one in the ordinary case, the system's red one when the
// application uses at least four times the threshold.
@interface BrimletDockBadgeView : NSView
@property(nonatomic, copy) NSString* text;
@property(nonatomic) BOOL heavy;
@end

@implementation BrimletDockBadgeView

- (void)drawRect:(NSRect)dirtyRect {
    (void)dirtyRect;
    const NSRect bounds = self.bounds;
    NSBezierPath* capsule = [NSBezierPath bezierPathWithRoundedRect:bounds
                                                            xRadius:NSHeight(bounds) / 2
                                                            yRadius:NSHeight(bounds) / 2];
    NSColor* fill = self.heavy ? [NSColor systemRedColor] : [[NSColor blackColor] colorWithAlphaComponent:0.72];
    [fill setFill];
    [capsule fill];

    NSDictionary* attributes =
        @{NSFontAttributeName : badgeFont(), NSForegroundColorAttributeName : [NSColor whiteColor]};
    const NSSize textSize = [self.text sizeWithAttributes:attributes];
    const NSPoint origin = NSMakePoint(NSMidX(bounds) - textSize.width / 2, NSMidY(bounds) - textSize.height / 2);
    [self.text drawAtPoint:origin withAttributes:attributes];
}

@end

namespace brimlet::mac {

namespace {

// The badge's window: borderless, clear, above the Dock, on every Space and beside full-screen
// windows, never key, never main, and transparent to the mouse so the icon below still gets clicks.
NSPanel* makeBadgeWindow() {
    NSPanel* window =
        [[NSPanel alloc] initWithContentRect:NSMakeRect(0, 0, badgeHeight, badgeHeight)
                                   styleMask:NSWindowStyleMaskBorderless | NSWindowStyleMaskNonactivatingPanel
                                     backing:NSBackingStoreBuffered
                                       defer:YES];
    window.releasedWhenClosed = NO;
    window.hidesOnDeactivate = NO; // this accessory application is almost never the active one
    window.opaque = NO;
    window.backgroundColor = [NSColor clearColor];
    window.hasShadow = NO;
    window.ignoresMouseEvents = YES;
    window.level = CGWindowLevelForKey(kCGDockWindowLevelKey) + 1;
    window.collectionBehavior = NSWindowCollectionBehaviorCanJoinAllSpaces | NSWindowCollectionBehaviorStationary |
                                NSWindowCollectionBehaviorIgnoresCycle | NSWindowCollectionBehaviorFullScreenAuxiliary;
    window.animationBehavior = NSWindowAnimationBehaviorNone;
    window.contentView = [[BrimletDockBadgeView alloc] initWithFrame:NSMakeRect(0, 0, badgeHeight, badgeHeight)];
    return window;
}

// The capsule sits in the icon's top right corner like the system's own badges, and stays within
// the icon on the left when its text is wider than the icon.
NSRect badgeFrame(const Rect& icon, NSString* text) {
    const NSSize textSize = [text sizeWithAttributes:@{NSFontAttributeName : badgeFont()}];
    const CGFloat width = MAX(badgeHeight, ceil(textSize.width) + 2 * badgeTextPadding);
    const CGFloat x = MAX(icon.minX(), icon.maxX() - badgeInset - width);
    const CGFloat y = icon.maxY() - badgeInset - badgeHeight;
    return NSMakeRect(round(x), round(y), width, badgeHeight);
}

DockBadgeMetric metricFor(DockBadgeMode mode) {
    return mode == DockBadgeMode::cpu ? DockBadgeMetric::cpu : DockBadgeMetric::memory;
}

Rect rectOf(NSRect frame) { return Rect{{NSMinX(frame), NSMinY(frame)}, {NSWidth(frame), NSHeight(frame)}}; }

// Texts from the core are UTF-8; one that is not (a process name can be anything) reads as empty.
using kestrow::mac::toNSString;

class DarwinDockBadges final : public DockBadgeController {
public:
    explicit DarwinDockBadges(MonitorStore& store) : store_(store) {}
    ~DarwinDockBadges() override { removeAll(); }

    void refresh() override {
        const std::optional<std::vector<DockBadge>> badges = currentBadges();
        if (!badges) {
            removeAll();
            return;
        }
        show(*badges);
    }

private:
    // What to draw now; none while badges are off, before the first sample, without Accessibility
    // or while the Dock is hidden.
    std::optional<std::vector<DockBadge>> currentBadges() {
        if (!store_.dockBadgesActive() || !store_.snapshot()) return std::nullopt;
        // The system shows its request for Accessibility access once, when the user first turns
        // badges on; after that the answer is only checked, since the user gives it in System
        // Settings and the next sample picks it up.
        const bool trusted = DockAccessibility::isTrusted(!askedForTrust_);
        askedForTrust_ = true;
        if (!trusted) {
            noteOnce(untrustedLogged_, "Dock badges wait for Accessibility access");
            return std::nullopt;
        }
        untrustedLogged_ = false;

        NSArray<NSScreen*>* screens = [NSScreen screens];
        if (screens.count == 0) return std::nullopt;
        const double primaryScreenHeight = NSHeight(screens.firstObject.frame);
        const std::vector<DockItem> items = DockAccessibility::applicationItems();
        std::vector<Rect> iconFrames;
        iconFrames.reserve(items.size());
        for (const DockItem& item : items)
            iconFrames.push_back(DockLayout::cocoaFrame(item.axFrame, primaryScreenHeight));
        std::vector<Rect> screenFrames;
        for (NSScreen* screen in screens)
            screenFrames.push_back(rectOf(screen.frame));
        if (!DockLayout::isDockVisible(iconFrames, screenFrames)) return std::nullopt;

        return DockLayout::badges(items, store_.snapshot()->apps, metricFor(store_.dockBadges()),
                                  store_.dockBadgeSettings(), primaryScreenHeight);
    }

    // Updates the windows of badges that stay, opens ones for new badges and closes the rest, so a
    // badge that only changes its figure does not flicker.
    void show(const std::vector<DockBadge>& badges) {
        std::unordered_map<std::string, std::string> names;
        for (const AppGroup& group : store_.snapshot()->apps)
            names.emplace(group.id, group.name);
        const std::string metricTitle(metricFor(store_.dockBadges()).title());

        // Two tiles may stand for one group (the same app kept twice in the Dock): each gets its own
        // window, keyed by the group and the tile's turn, so none is left on screen unowned.
        std::map<std::string, NSPanel*> kept;
        std::map<std::string, int> seen;
        for (const DockBadge& badge : badges) {
            const std::string key = badge.id + "\n" + std::to_string(seen[badge.id]++);
            NSPanel* window = nil;
            if (auto found = windows_.find(key); found != windows_.end()) {
                window = found->second;
                windows_.erase(found);
            } else {
                window = makeBadgeWindow();
            }
            NSString* text = toNSString(badge.text);
            BrimletDockBadgeView* view = (BrimletDockBadgeView*)window.contentView;
            view.text = text;
            view.heavy = badge.isHeavy;
            const auto name = names.find(badge.id);
            view.accessibilityLabel = toNSString(
                DockLayout::spokenLabel(name != names.end() ? name->second : badge.id, metricTitle, badge.text));
            view.accessibilityRole = NSAccessibilityStaticTextRole;
            view.needsDisplay = YES;
            [window setFrame:badgeFrame(badge.iconFrame, text) display:YES];
            [window orderFrontRegardless];
            kept.emplace(key, window);
        }
        removeAll();
        windows_ = std::move(kept);
    }

    void removeAll() {
        for (auto& [id, window] : windows_)
            [window orderOut:nil];
        windows_.clear();
    }

    static void noteOnce(bool& logged, const char* text) {
        if (logged) return;
        logged = true;
        kestrow::log::info("dock", text);
    }

    MonitorStore& store_;
    std::map<std::string, NSPanel*> windows_; // by application group id and the tile's turn
    bool askedForTrust_ = false;
    bool untrustedLogged_ = false;
};

} // namespace

std::unique_ptr<DockBadgeController> makeDockBadges(MonitorStore& store) {
    return std::make_unique<DarwinDockBadges>(store);
}

} // namespace brimlet::mac
