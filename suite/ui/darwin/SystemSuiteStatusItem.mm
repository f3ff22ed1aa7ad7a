// The one menu bar item that the host shows for the whole suite. Every member's item is autosaved
// under the same name, so the status bar keeps one position for it whichever member hosts.
// Compiled with ARC.
#include "SuiteViews.hpp"
#include "base/darwin/Activation.hpp"

#include "base/Log.hpp"
#include "base/UserDefaults.hpp"

namespace kestrow::suite::mac {

namespace {

// A 16-point symbol sits on the menu bar's text baseline like the system's own items.
constexpr CGFloat imagePointSize = 16;

class SystemSuiteStatusItem final : public SuiteStatusItem {
public:
    explicit SystemSuiteStatusItem(SuiteHost& host) : defaults_(UserDefaults::standard("")) {
        // The position first: the status bar reads it when the autosaved item is made, so the item
        // appears at the spot every member shares instead of at the far left.
        if (const std::optional<double> position = host.preferredPosition())
            if (const Status written = SuiteStatusItemPosition::write(*position, *defaults_); written.failed())
                log::kit::error("statusItem", "suite item position not written: " + written.message());

        item_ = [NSStatusBar.systemStatusBar statusItemWithLength:NSVariableStatusItemLength];
        item_.autosaveName = toNSString(SuiteStatusItemPosition::autosaveName);

        controller_ = [[KestrowSuitePopoverController alloc] initWithHost:&host dismiss:[this] { closePopover(); }];
        popover_ = [[NSPopover alloc] init];
        popover_.behavior = NSPopoverBehaviorTransient;
        popover_.contentViewController = controller_;

        target_ = [[KestrowSuiteActionTarget alloc] initWithAction:[this](id) { togglePopover(); }];
        NSStatusBarButton* button = item_.button;
        button.target = target_;
        button.action = @selector(perform:);
        button.imagePosition = NSImageLeading;
        button.font = [NSFont monospacedDigitSystemFontOfSize:[NSFont menuBarFontOfSize:0].pointSize
                                                       weight:NSFontWeightRegular];
        button.image = symbolImage(SuiteFormat::itemSymbol(GlanceLevel::ok), SuiteFormat::itemLabel, imagePointSize);
        [button setAccessibilityLabel:toNSString(SuiteFormat::itemLabel)];
    }

    ~SystemSuiteStatusItem() override { withdraw(); }

    bool isVisible() const override { return item_ != nil && item_.visible; }

    void update(const SuiteValues& values, GlanceLevel worst) override {
        if (item_ == nil) return;
        const NumberLocale locale = currentNumberLocale();
        NSStatusBarButton* button = item_.button;
        button.title = toNSString(SuiteFormat::itemTitle(values, locale));
        button.image = symbolImage(SuiteFormat::itemSymbol(worst), SuiteFormat::levelWord(worst), imagePointSize);
        [button setAccessibilityLabel:toNSString(SuiteFormat::accessibilityLabel(values, worst, locale))];
        if (popover_.shown) [controller_ reload];
    }

    void withdraw() override {
        if (item_ == nil) return;
        // At once, without the closing animation: the popover and its content go with the item,
        // and its controls hold the host, which may be going too.
        if (popover_.shown) [popover_ close];
        [NSStatusBar.systemStatusBar removeStatusItem:item_];
        item_ = nil;
    }

    std::optional<double> savedPosition() const override { return SuiteStatusItemPosition::read(*defaults_); }

private:
    void togglePopover() {
        if (popover_.shown) return closePopover();
        NSStatusBarButton* button = item_.button;
        if (button == nil) return;
        [controller_ reload];
        // An accessory application must come forward for the popover to take keys and to close
        // when the user clicks elsewhere.
        kestrow::mac::activateApplication();
        [popover_ showRelativeToRect:button.bounds ofView:button preferredEdge:NSRectEdgeMinY];
    }

    void closePopover() {
        if (popover_.shown) [popover_ performClose:nil];
    }

    std::unique_ptr<UserDefaults> defaults_;
    NSStatusItem* item_ = nil;
    NSPopover* popover_ = nil;
    KestrowSuitePopoverController* controller_ = nil;
    KestrowSuiteActionTarget* target_ = nil;
};

} // namespace

std::unique_ptr<SuiteStatusItem> makeSystemSuiteStatusItem(SuiteHost& host) {
    return std::make_unique<SystemSuiteStatusItem>(host);
}

} // namespace kestrow::suite::mac
