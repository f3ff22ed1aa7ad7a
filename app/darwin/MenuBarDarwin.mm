// The application's own menu bar item: present exactly while the suite lets this application show
// its own icon, drawn as the user chose (icon, memory bar, bar and percentage), and opening the
// monitor's popover. Removing the item from the menu bar by Command-dragging it away is the user's
// answer too: the participant hears of it and a reopen of the application brings the item back.
#include "MacFrontEnd.hpp"
#include "base/darwin/Activation.hpp"

#include <algorithm>
#include <string>

#include "MonitorPopover.hpp"
#include "MonitorViews.hpp"
#include "app/screens/MonitorReadout.hpp"

namespace brimlet::mac {
namespace {
class StatusMenuBar;
}
} // namespace brimlet::mac

// The Objective-C side of the item: the button's action, the popover's delegate and the observer
// of the item's visibility. It forwards to the C++ owner while that one lives.
@interface KBStatusItemTarget : NSObject <NSPopoverDelegate>
@property(nonatomic) brimlet::mac::StatusMenuBar* owner;
@end

namespace brimlet::mac {
namespace {

namespace R = MonitorReadout;

constexpr CGFloat iconPointSize = 15;
constexpr CGFloat barWidth = 5;
constexpr CGFloat barHeight = 13;
constexpr CGFloat barGap = 3;
NSString* const autosaveName = @"KestrowBrimlet";
char visibleContextTag;
void* const visibleContext = &visibleContextTag; // tells our KVO registration from a superclass's

// The memory chip with a small upright gauge beside it, filled from the bottom. A template image,
// so the menu bar tints it for its appearance and for a selected item.
NSImage* menuBarImage(bool withBar, int percent) {
    NSImageSymbolConfiguration* configuration =
        [NSImageSymbolConfiguration configurationWithPointSize:iconPointSize weight:NSFontWeightRegular];
    NSImage* chip = [symbolImage(@"memorychip", nil) imageWithSymbolConfiguration:configuration];
    if (!withBar) {
        [chip setTemplate:YES];
        return chip;
    }
    const NSSize chipSize = chip.size;
    const NSSize size = NSMakeSize(chipSize.width + barGap + barWidth, MAX(chipSize.height, barHeight));
    const double fraction = std::clamp(percent, 0, 100) / 100.0;
    NSImage* image = [NSImage
         imageWithSize:size
               flipped:NO
        drawingHandler:^BOOL(NSRect) {
            [chip drawInRect:NSMakeRect(0, (size.height - chipSize.height) / 2, chipSize.width, chipSize.height)];
            const NSRect frame =
                NSMakeRect(chipSize.width + barGap, (size.height - barHeight) / 2, barWidth, barHeight);
            [NSColor.blackColor set];
            NSBezierPath* outline = [NSBezierPath bezierPathWithRoundedRect:NSInsetRect(frame, 0.5, 0.5)
                                                                    xRadius:1.5
                                                                    yRadius:1.5];
            outline.lineWidth = 1;
            [outline stroke];
            NSRect filled = NSInsetRect(frame, 1.5, 1.5);
            filled.size.height *= fraction;
            NSRectFill(filled);
            return YES;
        }];
    [image setTemplate:YES];
    return image;
}

class StatusMenuBar final : public MenuBar {
public:
    StatusMenuBar(BrimletApplication& application, WindowPresenter& windows)
        : application_(application), store_(application.monitor()) {
        target_ = [[KBStatusItemTarget alloc] init];
        target_.owner = this;
        content_ = [[KBMonitorPopoverController alloc] initWithStore:store_ windows:windows];
        suiteObservation_ = application_.suite().observe([this] { applyPresence(); });
        storeObservation_ = store_.observe([this] {
            updateButton();
            if (popover_.shown) [content_ refresh];
        });
        applyPresence();
    }

    ~StatusMenuBar() override {
        suiteObservation_.cancel();
        storeObservation_.cancel();
        removeItem();
        [content_ detach];
        target_.owner = nullptr;
    }

    void togglePopover() {
        if (!item_) return;
        if (popover_.shown) {
            [popover_ performClose:nil];
            return;
        }
        if (!popover_) {
            popover_ = [[NSPopover alloc] init];
            popover_.behavior = NSPopoverBehaviorTransient;
            popover_.animates = YES;
            popover_.contentViewController = content_;
            popover_.delegate = target_;
            content_.popover = popover_;
        }
        NSStatusBarButton* button = item_.button;
        // An accessory application must come forward for the popover to take the keyboard.
        kestrow::mac::activateApplication();
        [popover_ showRelativeToRect:button.bounds ofView:button preferredEdge:NSRectEdgeMinY];
        [popover_.contentViewController.view.window makeKeyWindow];
    }

    // The popover's appearance and disappearance count as one live surface of the store, exactly
    // once each however AppKit sequences its notifications.
    void popoverWillShow() {
        if (surfaceShown_) return;
        surfaceShown_ = true;
        store_.surfaceAppeared();
    }

    void popoverDidShow() { [content_ popoverDidShow]; }

    void popoverDidClose() {
        [content_ popoverDidClose];
        if (!surfaceShown_) return;
        surfaceShown_ = false;
        store_.surfaceDisappeared();
    }

    // The user dragged the item out of the menu bar.
    void itemVisibilityChanged() {
        if (item_ && !item_.visible) application_.participant().setShowsOwnIcon(false);
    }

private:
    void applyPresence() {
        if (application_.suite().showsOwnIcon()) makeItem();
        else removeItem();
    }

    void makeItem() {
        if (item_) return;
        item_ = [NSStatusBar.systemStatusBar statusItemWithLength:NSVariableStatusItemLength];
        item_.autosaveName = autosaveName;
        item_.behavior = NSStatusItemBehaviorRemovalAllowed;
        // The status bar remembers a removal under the autosave name; being asked back overrides it.
        item_.visible = YES;
        NSStatusBarButton* button = item_.button;
        button.target = target_;
        button.action = @selector(togglePopover:);
        button.imagePosition = NSImageLeft;
        button.font = figureFont(13, NSFontWeightMedium);
        shownPercent_ = -1;
        shownTitle_.clear();
        updateButton(true);
        [item_ addObserver:target_ forKeyPath:@"visible" options:NSKeyValueObservingOptionNew context:visibleContext];
    }

    void removeItem() {
        if (!item_) return;
        if (popover_.shown) [popover_ close];
        popoverDidClose(); // whether or not `close` told the delegate, the surface is counted off once
        [item_ removeObserver:target_ forKeyPath:@"visible" context:visibleContext];
        [NSStatusBar.systemStatusBar removeStatusItem:item_];
        item_ = nil;
    }

    void updateButton(bool force = false) {
        if (!item_) return;
        const MenuBarDisplay display = store_.menuBarDisplay();
        const std::optional<SystemGlance>& glance = store_.glance();
        const bool withBar = R::menuBarShowsBar(display);
        const int percent = glance ? R::memoryPercent(*glance) : 0;
        const std::string title = R::menuBarTitle(display, glance);
        NSStatusBarButton* button = item_.button;
        // Redraw the image only when what it shows changed; the glance arrives every 2 s.
        if (force || withBar != shownWithBar_ || (withBar && percent != shownPercent_)) {
            button.image = menuBarImage(withBar, percent);
            shownWithBar_ = withBar;
            shownPercent_ = percent;
        }
        if (force || title != shownTitle_) {
            button.title = toNSString(title);
            button.imagePosition = title.empty() ? NSImageOnly : NSImageLeft;
            shownTitle_ = title;
        }
        button.accessibilityLabel = toNSString(R::menuBarAccessibilityLabel(glance));
        button.toolTip = button.accessibilityLabel;
    }

    BrimletApplication& application_;
    MonitorStore& store_;
    KBStatusItemTarget* target_ = nil;
    KBMonitorPopoverController* content_ = nil;
    NSStatusItem* item_ = nil;
    NSPopover* popover_ = nil;
    bool surfaceShown_ = false;
    bool shownWithBar_ = false;
    int shownPercent_ = -1;
    std::string shownTitle_;
    kestrow::MainLoop::Token suiteObservation_;
    kestrow::MainLoop::Token storeObservation_;
};

} // namespace

std::unique_ptr<MenuBar> makeMenuBar(BrimletApplication& application, WindowPresenter& windows) {
    return std::make_unique<StatusMenuBar>(application, windows);
}

} // namespace brimlet::mac

@implementation KBStatusItemTarget

- (void)togglePopover:(id)sender {
    (void)sender;
    if (_owner) _owner->togglePopover();
}

- (void)popoverWillShow:(NSNotification*)notification {
    (void)notification;
    if (_owner) _owner->popoverWillShow();
}

- (void)popoverDidShow:(NSNotification*)notification {
    (void)notification;
    if (_owner) _owner->popoverDidShow();
}

- (void)popoverDidClose:(NSNotification*)notification {
    (void)notification;
    if (_owner) _owner->popoverDidClose();
}

- (void)observeValueForKeyPath:(NSString*)keyPath
                      ofObject:(id)object
                        change:(NSDictionary<NSKeyValueChangeKey, id>*)change
                       context:(void*)context {
    if (context != brimlet::mac::visibleContext) {
        [super observeValueForKeyPath:keyPath ofObject:object change:change context:context];
        return;
    }
    if (_owner) _owner->itemVisibilityChanged();
}

@end
