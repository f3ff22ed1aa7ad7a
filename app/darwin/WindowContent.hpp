// The contents of the dashboard and settings windows, made by the window presenter when a window
// opens for the first time. Each controller reads from and writes to the application's stores only.
#pragma once

#import <AppKit/AppKit.h>

#include "app/startup/BrimletApplication.hpp"

namespace brimlet::mac {

// Live figures with their grades, the 5-minute charts and the application table with its quit
// control; refreshes whenever the monitor store changes while it is on screen.
NSViewController* makeDashboardViewController(BrimletApplication& application);

// Asks the running application of the group to quit, as its Quit command does; never this process.
void quitApplication(const AppGroup& group);

// Alerts, menu bar display, floating monitor, Dock badges, launch at login and the suite's own-icon
// choice; its view has a fitting size the window takes on.
NSViewController* makeSettingsViewController(BrimletApplication& application);

}  // namespace brimlet::mac
