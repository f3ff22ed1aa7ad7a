// The pieces of the AppKit front end and how they meet. Each is made on the main thread once
// NSApplication exists, holds its views, and reads and changes the application only through the
// tested stores; no rule is decided in the views.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "app/desktop/BrimletWindows.hpp"
#include "app/desktop/DesktopController.hpp"
#include "app/desktop/Notifier.hpp"
#include "app/startup/BrimletApplication.hpp"
#include "app/stores/MonitorStore.hpp"
#include "base/MainLoop.hpp"

namespace brimlet::mac {

// The three windows, "dashboard", "cleanup" and "settings".
class WindowPresenter {
public:
    virtual ~WindowPresenter() = default;
    // Opens the window with this identifier, or brings it forward, and activates the application.
    virtual void open(std::string_view identifier) = 0;
    // Every window of the application as the quit rule and the intent router look at them.
    virtual std::vector<BrimletWindows::Window> windows() const = 0;
};
std::unique_ptr<WindowPresenter> makeWindowPresenter(BrimletApplication& application);

// The application's own menu bar item and its popover, shown while the suite lets it show its own icon.
class MenuBar {
public:
    virtual ~MenuBar() = default;
};
std::unique_ptr<MenuBar> makeMenuBar(BrimletApplication& application, WindowPresenter& windows);

// The application, Edit and Window menus, shown while one of the windows is in front: without them
// ⌘W, ⌘Q and the text commands do nothing. Removed from the presenter when this goes.
class MainMenuInstallation {
public:
    virtual ~MainMenuInstallation() = default;
};
std::unique_ptr<MainMenuInstallation> installMainMenu(WindowPresenter& windows);

// The application's own floating monitor (bar or table) while the suite is inactive.
std::unique_ptr<FloatingMonitorController> makeFloatingMonitor(MonitorStore& store);

// The badges drawn over other applications' Dock icons.
std::unique_ptr<DockBadgeController> makeDockBadges(MonitorStore& store);

// Alerts as user notifications of the notification centre.
std::unique_ptr<Notifier> makeUserNotificationNotifier(kestrow::MainLoop& loop, std::function<void()> onOpen);

// Hands the running application to the App Intents (built only where a Swift compiler exists);
// harmless without them. Called once the application exists, and with null at the end.
void installIntentBridge(BrimletApplication* application);

}  // namespace brimlet::mac
