// The application's three windows. Each is made on first use and kept when closed, so a window
// reopens where the user left it. The application is an accessory (no Dock icon): opening a window
// activates it explicitly, or the window would appear behind the application in front.
#include <map>
#include <memory>
#include <string>

#include "CleanupView.hpp"
#include "MacFrontEnd.hpp"
#include "WindowContent.hpp"
#include "WindowKit.hpp"
#include "app/screens/MonitorReadout.hpp"
#include "app/stores/LiveSurface.hpp"
#include "base/Log.hpp"
#include "base/darwin/Activation.hpp"

// Tells the presenter when a window leaves or comes back to the screen.
@interface KBWindowWatcher : NSObject <NSWindowDelegate>
@property(nonatomic, copy) void (^onScreenChanged)(BOOL onScreen);
@end

@implementation KBWindowWatcher
- (void)report:(BOOL)onScreen {
    if (self.onScreenChanged) self.onScreenChanged(onScreen);
}
- (void)windowWillClose:(NSNotification*)notification {
    (void)notification;
    [self report:NO];
}
- (void)windowDidMiniaturize:(NSNotification*)notification {
    (void)notification;
    [self report:NO];
}
- (void)windowDidDeminiaturize:(NSNotification*)notification {
    (void)notification;
    [self report:YES];
}
@end

namespace brimlet::mac {

namespace {

struct WindowKind {
    std::string_view identifier;
    std::string_view title;
    NSSize size;    // zero: the content's fitting size
    NSSize minimum; // zero: not resizable
    bool showsLiveFigures;
};

constexpr WindowKind kinds[] = {
    {BrimletWindows::dashboard, MonitorReadout::productName, {1040, 820}, {820, 620}, true},
    {BrimletWindows::cleanup, MonitorReadout::cleanupTitle, {760, 720}, {600, 520}, false},
    {BrimletWindows::settings, MonitorReadout::settingsTitle, {0, 0}, {0, 0}, false},
};

const WindowKind* kindFor(std::string_view identifier) {
    for (const WindowKind& kind : kinds)
        if (kind.identifier == identifier) return &kind;
    return nullptr;
}

class WindowPresenterDarwin final : public WindowPresenter {
public:
    explicit WindowPresenterDarwin(BrimletApplication& application) : application_(application) {
        NSNotificationCenter* center = NSNotificationCenter.defaultCenter;
        // A hidden application (⌘H) shows no window, so its live windows stop counting until it returns.
        hideObserver_ = [center addObserverForName:NSApplicationDidHideNotification
                                            object:nil
                                             queue:nil
                                        usingBlock:^(NSNotification*) { followApplicationVisibility(false); }];
        unhideObserver_ = [center addObserverForName:NSApplicationDidUnhideNotification
                                              object:nil
                                               queue:nil
                                          usingBlock:^(NSNotification*) { followApplicationVisibility(true); }];
    }

    ~WindowPresenterDarwin() override {
        [NSNotificationCenter.defaultCenter removeObserver:hideObserver_];
        [NSNotificationCenter.defaultCenter removeObserver:unhideObserver_];
        for (auto& [identifier, entry] : entries_) {
            entry.window.delegate = nil;
            entry.surface.reset(); // a live window that goes away stops counting
            [entry.window orderOut:nil];
        }
    }

    void open(std::string_view identifier) override {
        const WindowKind* kind = kindFor(identifier);
        if (!kind) {
            kestrow::log::error("windows", "no window named " + std::string(identifier));
            return;
        }
        Entry& entry = entryFor(*kind);
        NSWindow* window = entry.window;
        if (window.isMiniaturized) [window deminiaturize:nil];
        kestrow::mac::activateApplication();
        [window makeKeyAndOrderFront:nil];
        // Activation of an accessory application can lag behind (another application may be in the
        // middle of a switch); ordering the window front regardless keeps it from opening behind.
        [window orderFrontRegardless];
        if (entry.surface) entry.surface->setOnScreen(true);
    }

    std::vector<BrimletWindows::Window> windows() const override {
        std::vector<BrimletWindows::Window> out;
        for (NSWindow* window in NSApp.windows) {
            NSString* identifier = window.identifier;
            out.push_back({identifier ? utf8(identifier) : std::string(), static_cast<bool>(window.isVisible),
                           static_cast<bool>(window.isMiniaturized)});
        }
        return out;
    }

private:
    struct Entry {
        NSWindow* window = nil;
        KBWindowWatcher* watcher = nil;
        std::unique_ptr<LiveSurface> surface; // only for windows that show live figures
    };

    NSViewController* contentFor(const WindowKind& kind) {
        if (kind.identifier == BrimletWindows::dashboard) return makeDashboardViewController(application_);
        if (kind.identifier == BrimletWindows::cleanup) return makeCleanupViewController(application_);
        return makeSettingsViewController(application_);
    }

    Entry& entryFor(const WindowKind& kind) {
        const std::string key(kind.identifier);
        if (auto found = entries_.find(key); found != entries_.end()) return found->second;

        const bool resizable = kind.minimum.width > 0;
        NSWindowStyleMask mask = NSWindowStyleMaskTitled | NSWindowStyleMaskClosable | NSWindowStyleMaskMiniaturizable;
        if (resizable) mask |= NSWindowStyleMaskResizable;
        NSWindow* window = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 480, 360)
                                                       styleMask:mask
                                                         backing:NSBackingStoreBuffered
                                                           defer:YES];
        window.releasedWhenClosed = NO; // kept, so it reopens as the user left it
        window.identifier = toNSString(kind.identifier);
        window.title = toNSString(kind.title);
        window.tabbingMode = NSWindowTabbingModeDisallowed;
        // Open on the Space the user is on, not the one the window was last seen on.
        window.collectionBehavior = window.collectionBehavior | NSWindowCollectionBehaviorMoveToActiveSpace;
        window.autorecalculatesKeyViewLoop = YES; // Tab follows the layout, top to bottom
        window.contentViewController = contentFor(kind);

        NSString* autosaveName = [@"KestrowBrimlet." stringByAppendingString:toNSString(kind.identifier)];
        if (resizable) {
            window.contentMinSize = kind.minimum;
            [window setContentSize:kind.size];
            if (![window setFrameUsingName:autosaveName]) [window center];
        } else {
            [window setContentSize:window.contentViewController.view.fittingSize];
            [window center];
        }
        [window setFrameAutosaveName:autosaveName];

        Entry entry;
        entry.window = window;
        entry.watcher = [[KBWindowWatcher alloc] init];
        if (kind.showsLiveFigures) {
            MonitorStore* monitor = &application_.monitor();
            entry.surface = std::make_unique<LiveSurface>([monitor] { monitor->surfaceAppeared(); },
                                                          [monitor] { monitor->surfaceDisappeared(); });
            LiveSurface* surface = entry.surface.get();
            entry.watcher.onScreenChanged = ^(BOOL onScreen) { surface->setOnScreen(onScreen); };
        }
        window.delegate = entry.watcher; // the delegate is weak; the entry keeps the watcher
        return entries_.emplace(key, std::move(entry)).first->second;
    }

    void followApplicationVisibility(bool shown) {
        for (auto& [identifier, entry] : entries_) {
            if (!entry.surface) continue;
            entry.surface->setOnScreen(shown && entry.window.isVisible && !entry.window.isMiniaturized);
        }
    }

    BrimletApplication& application_;
    std::map<std::string, Entry> entries_;
    id hideObserver_ = nil;
    id unhideObserver_ = nil;
};

} // namespace

std::unique_ptr<WindowPresenter> makeWindowPresenter(BrimletApplication& application) {
    return std::make_unique<WindowPresenterDarwin>(application);
}

} // namespace brimlet::mac
