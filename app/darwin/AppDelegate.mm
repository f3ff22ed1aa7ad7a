// Every entry point runs on the main thread (AppKit calls its delegate there) and says so: the
// stores it reaches are confined to that thread.
#import "AppDelegate.h"

#include <dispatch/dispatch.h>

#include <optional>

#include "TerminationSender.hpp"
#include "app/desktop/QuitRule.hpp"
#include "app/startup/LaunchRole.hpp"
#include "base/Log.hpp"

namespace {

using brimlet::LaunchRole;

LaunchRole::Policy rolePolicy(NSApplicationActivationPolicy policy) {
    switch (policy) {
    case NSApplicationActivationPolicyRegular:
        return LaunchRole::Policy::regular;
    case NSApplicationActivationPolicyAccessory:
        return LaunchRole::Policy::accessory;
    case NSApplicationActivationPolicyProhibited:
        return LaunchRole::Policy::prohibited;
    }
    return LaunchRole::Policy::regular; // a future policy: leave it alone
}

NSApplicationActivationPolicy appKitPolicy(LaunchRole::Policy policy) {
    switch (policy) {
    case LaunchRole::Policy::regular:
        return NSApplicationActivationPolicyRegular;
    case LaunchRole::Policy::accessory:
        return NSApplicationActivationPolicyAccessory;
    case LaunchRole::Policy::prohibited:
        return NSApplicationActivationPolicyProhibited;
    }
    return NSApplicationActivationPolicyAccessory;
}

} // namespace

@implementation AppDelegate

+ (void)settleRoleBeforeRun {
    if (const auto policy = LaunchRole::beforeRun(rolePolicy(NSApp.activationPolicy)))
        [NSApp setActivationPolicy:appKitPolicy(*policy)];
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
    (void)notification;
    dispatch_assert_queue(dispatch_get_main_queue());
    if (const auto policy = LaunchRole::switchTo(rolePolicy(NSApp.activationPolicy))) {
        [NSApp setActivationPolicy:appKitPolicy(*policy)];
        kestrow::log::info(LaunchRole::logCategory, LaunchRole::backgroundLaunchMessage);
    }
}

- (BOOL)applicationShouldHandleReopen:(NSApplication*)sender hasVisibleWindows:(BOOL)flag {
    (void)sender;
    (void)flag;
    dispatch_assert_queue(dispatch_get_main_queue());
    if (self.session == nullptr) return YES;
    self.session->application().handleReopen();
    return NO;
}

- (NSApplicationTerminateReply)applicationShouldTerminate:(NSApplication*)sender {
    (void)sender;
    dispatch_assert_queue(dispatch_get_main_queue());
    const std::optional<brimlet::IntentQuitPolicy::Request> request = brimlet::mac::currentQuitRequest();
    std::vector<brimlet::BrimletWindows::Window> windows;
    std::optional<brimlet::CleanupPhase> cleanupPhase;
    if (self.session != nullptr) {
        windows = self.session->windows();
        cleanupPhase = self.session->application().cleanup().phase();
    }
    const brimlet::QuitRule::Reply reply = brimlet::QuitRule::reply(request, windows, cleanupPhase);
    if (reply.logMessage) kestrow::log::info(LaunchRole::logCategory, *reply.logMessage);
    return reply.answer == brimlet::QuitRule::Answer::terminateCancel ? NSTerminateCancel : NSTerminateNow;
}

- (void)applicationWillTerminate:(NSNotification*)notification {
    (void)notification;
    dispatch_assert_queue(dispatch_get_main_queue());
    if (self.session != nullptr) self.session->end();
}

@end
