// Alerts as the notification centre's user notifications. AuthorisedNotifier decides when to ask
// for permission and what waits for the answer; this file only speaks to the centre, whose answer
// for each alert decides "delivered": a refusal (notifications turned off for the app, now or later
// in System Settings) or any other error counts as not delivered.
#include "MacFrontEnd.hpp"

#import <Foundation/Foundation.h>
#import <UserNotifications/UserNotifications.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "app/desktop/AuthorisedNotifier.hpp"
#include "base/darwin/StringBridge.hpp"

// Lets an alert show as a banner even while one of the app's windows is in front; without a
// delegate the centre keeps a foreground app's notifications silent. A click on an alert opens
// what it is about: the dashboard with the live figures.
@interface BrimletNotificationPresenter : NSObject <UNUserNotificationCenterDelegate>
- (instancetype)initWithLoop:(kestrow::MainLoop*)loop onOpen:(std::function<void()>)onOpen;
@end

@implementation BrimletNotificationPresenter {
    kestrow::MainLoop* _loop;
    std::function<void()> _onOpen;
}

- (instancetype)initWithLoop:(kestrow::MainLoop*)loop onOpen:(std::function<void()>)onOpen {
    if (!(self = [super init])) return nil;
    _loop = loop;
    _onOpen = std::move(onOpen);
    return self;
}

- (void)userNotificationCenter:(UNUserNotificationCenter*)center
    didReceiveNotificationResponse:(UNNotificationResponse*)response
             withCompletionHandler:(void (^)(void))completionHandler {
    (void)center;
    // Only the click on the alert itself; a dismissal is not a wish to see anything.
    if (_onOpen && [response.actionIdentifier isEqualToString:UNNotificationDefaultActionIdentifier])
        _loop->post(_onOpen); // the centre may answer on a queue of its own
    completionHandler();
}

- (void)userNotificationCenter:(UNUserNotificationCenter*)center
       willPresentNotification:(UNNotification*)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions options))completionHandler {
    (void)center;
    (void)notification;
    completionHandler(UNNotificationPresentationOptionBanner | UNNotificationPresentationOptionList);
}

@end

namespace brimlet::mac {

using kestrow::mac::toNSString;
using kestrow::mac::utf8IfAny;

namespace {

std::string describe(NSError* error) {
    return utf8IfAny(error.localizedDescription).value_or("error") + " (" + utf8IfAny(error.domain).value_or("?") +
           " " + std::to_string(error.code) + ")";
}

// The notification centre as AuthorisedNotifier asks it; the permission and the waiting are there.
class UserNotificationCentre final : public NotificationCentre {
public:
    explicit UserNotificationCentre(kestrow::MainLoop& loop, std::function<void()> onOpen) {
        // The centre exists only for a process inside an app bundle; asking for it elsewhere (the
        // bare executable of a build folder) raises an Objective-C exception.
        if (NSBundle.mainBundle.bundleIdentifier == nil) return;
        center_ = [UNUserNotificationCenter currentNotificationCenter];
        presenter_ = [[BrimletNotificationPresenter alloc] initWithLoop:&loop onOpen:std::move(onOpen)];
        center_.delegate = presenter_; // a weak reference: this object keeps the presenter alive
    }

    ~UserNotificationCentre() override {
        if (center_ != nil && center_.delegate == presenter_) center_.delegate = nil;
    }

    kestrow::Status availability() const override {
        return center_ == nil ? kestrow::Status::failure(kestrow::Cause::unavailable,
                                                         "no notification centre outside the app bundle")
                              : kestrow::Status::success();
    }

    void requestAuthorisation(Answer answered) override {
        [center_ requestAuthorizationWithOptions:UNAuthorizationOptionAlert
                               completionHandler:^(BOOL granted, NSError* error) {
                                   answered(granted ? kestrow::Status::success()
                                                    : kestrow::Status::failure(error != nil ? describe(error)
                                                                                            : "not allowed"));
                               }];
    }

    void add(const Alert& alert, Answer answered) override {
        UNMutableNotificationContent* content = [[UNMutableNotificationContent alloc] init];
        content.title = toNSString(alert.title);
        content.body = toNSString(alert.body);
        content.threadIdentifier = toNSString(threadIdentifier);
        // One identifier per kind: a repeat of the same alert replaces the older one in the list.
        NSString* identifier = toNSString("alert." + std::string(alert.kind.rawValue()));
        UNNotificationRequest* request = [UNNotificationRequest requestWithIdentifier:identifier
                                                                              content:content
                                                                              trigger:nil];
        [center_ addNotificationRequest:request
                  withCompletionHandler:^(NSError* error) {
                      answered(error != nil ? kestrow::Status::failure(describe(error)) : kestrow::Status::success());
                  }];
    }

private:
    static constexpr std::string_view threadIdentifier = "alerts";
    UNUserNotificationCenter* center_ = nil;
    BrimletNotificationPresenter* presenter_ = nil;
};

} // namespace

std::unique_ptr<Notifier> makeUserNotificationNotifier(kestrow::MainLoop& loop, std::function<void()> onOpen) {
    return std::make_unique<AuthorisedNotifier>(loop,
                                                std::make_unique<UserNotificationCentre>(loop, std::move(onOpen)));
}

} // namespace brimlet::mac
