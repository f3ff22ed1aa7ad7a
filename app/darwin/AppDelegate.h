// The application delegate: AppKit's launch, reopen and termination questions, answered by the
// application structure and the quit rule. The start-up code hands it a session once the
// application structure exists; until then (and after the session ends) it gives AppKit's defaults.
#pragma once

#import <AppKit/AppKit.h>

#include <vector>

#include "app/desktop/BrimletWindows.hpp"
#include "app/startup/BrimletApplication.hpp"

namespace brimlet::mac {

// What the delegate asks of the running application. Main thread only.
class ApplicationSession {
public:
    virtual ~ApplicationSession() = default;
    virtual BrimletApplication& application() = 0;
    // The application's windows as the quit rule looks at them; empty while there are none.
    virtual std::vector<BrimletWindows::Window> windows() const = 0;
    // The process ends: the suite hears this member stopped. Harmless twice.
    virtual void end() = 0;
};

} // namespace brimlet::mac

@interface AppDelegate : NSObject <NSApplicationDelegate>

// Not owned: the start-up code keeps the session alive for the whole run and clears this first.
@property(nonatomic, assign) brimlet::mac::ApplicationSession* session;

// Takes the menu-bar role before the run loop starts where nothing else gave it (the bare executable).
+ (void)settleRoleBeforeRun;

@end
