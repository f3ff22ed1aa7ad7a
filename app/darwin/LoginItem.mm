#include "LoginItem.hpp"

#import <Foundation/Foundation.h>

#include "app/screens/SettingsChoices.hpp"
#include "base/Log.hpp"
#include "base/darwin/StringBridge.hpp"

// SMAppService arrived with macOS 13, after the SDK this project builds against, so its class is
// reached at run time. The protocol declares exactly the members used here, with the signatures of
// ServiceManagement's SMAppService.h; the deployment target of 13.0 guarantees the class exists on
// every system that runs the app, and the lookup failing is still handled as "unavailable".
@protocol KBMainAppService <NSObject>
@property(readonly) NSInteger status; // SMAppServiceStatus
- (BOOL)registerAndReturnError:(NSError**)error;
- (BOOL)unregisterAndReturnError:(NSError**)error;
@end

@protocol KBAppServiceClass <NSObject>
@property(class, readonly) id<KBMainAppService> mainAppService;
@end

namespace brimlet::mac::LoginItem {

namespace {

// SMAppServiceStatus values.
constexpr NSInteger statusNotRegistered = 0;
constexpr NSInteger statusEnabled = 1;
constexpr NSInteger statusRequiresApproval = 2;

id<KBMainAppService> mainAppService() {
    // ServiceManagement is not linked (its SDK stubs lack the class); load it once by path.
    static Class serviceClass = []() -> Class {
        [[NSBundle bundleWithPath:@"/System/Library/Frameworks/ServiceManagement.framework"] load];
        return NSClassFromString(@"SMAppService");
    }();
    if (!serviceClass || ![serviceClass respondsToSelector:@selector(mainAppService)]) return nil;
    return [static_cast<Class<KBAppServiceClass>>(serviceClass) mainAppService];
}

} // namespace

State current() {
    id<KBMainAppService> service = mainAppService();
    if (!service) return State::unavailable;
    switch (service.status) {
    case statusEnabled:
        return State::enabled;
    case statusRequiresApproval:
        return State::requiresApproval;
    case statusNotRegistered:
        return State::disabled;
    default:
        return State::disabled; // not found: nothing is registered
    }
}

kestrow::Status setEnabled(bool enabled) {
    id<KBMainAppService> service = mainAppService();
    if (!service) return kestrow::Status::failure(std::string(brimlet::SettingsChoices::loginItemServiceMissing));
    NSError* error = nil;
    const BOOL done = enabled ? [service registerAndReturnError:&error] : [service unregisterAndReturnError:&error];
    if (done) return kestrow::Status::success();
    std::string text = kestrow::mac::utf8IfAny(error.localizedDescription)
                           .value_or(std::string(brimlet::SettingsChoices::loginItemUnknownError));
    kestrow::log::error("settings", "login item not changed: " + text);
    return kestrow::Status::failure(std::move(text));
}

} // namespace brimlet::mac::LoginItem
