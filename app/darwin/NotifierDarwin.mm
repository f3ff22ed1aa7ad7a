// Alerts as the notification centre's user notifications. Permission is asked for once, on the
// first alert (not at launch: a menu-bar app that never alerts never asks); alerts that come while
// the question is open wait for the answer. Each alert is then handed to the centre, whose answer
// decides "delivered": a refusal (notifications turned off for the app, now or later in System
// Settings) or any other error counts as not delivered and is logged. The centre answers on a
// queue of its own; the answers hop to the main loop before anyone hears them.
#include "MacFrontEnd.hpp"

#import <Foundation/Foundation.h>
#import <UserNotifications/UserNotifications.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ShellText.hpp"
#include "base/Log.hpp"

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
        _loop->post(_onOpen);  // the centre may answer on a queue of its own
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

namespace {

constexpr std::string_view logCategory = "notifier";

std::string describe(NSError* error) {
    return toStdString(error.localizedDescription).value_or("error") + " (" + toStdString(error.domain).value_or("?") +
           " " + std::to_string(error.code) + ")";
}

}  // namespace

class UserNotificationNotifier final : public Notifier {
public:
    UserNotificationNotifier(kestrow::MainLoop& loop, std::function<void()> onOpen) : loop_(loop) {
        // The centre exists only for a process inside an app bundle; asking for it elsewhere (the
        // bare executable of a build folder) raises an Objective-C exception.
        if (NSBundle.mainBundle.bundleIdentifier == nil) {
            kestrow::log::error(logCategory, "not started from the app bundle: alerts cannot be posted as notifications");
            return;
        }
        center_ = [UNUserNotificationCenter currentNotificationCenter];
        presenter_ = [[BrimletNotificationPresenter alloc] initWithLoop:&loop_ onOpen:std::move(onOpen)];
        center_.delegate = presenter_;  // a weak reference: this object keeps the presenter alive
    }

    ~UserNotificationNotifier() override {
        alive_.reset();
        if (center_ != nil && center_.delegate == presenter_) center_.delegate = nil;
    }

    void post(const Alert& alert, Completion done) override {
        if (center_ == nil) {
            // Answered later, as the centre would: never from inside post().
            loop_.post([this, alive = std::weak_ptr<bool>(alive_), alert, done = std::move(done)]() mutable {
                if (alive.lock()) finish(alert, std::move(done), "no notification centre outside the app bundle");
            });
            return;
        }
        switch (authorisation_) {
            case Authorisation::unasked:
                waiting_.push_back({alert, std::move(done)});
                askOnce();
                return;
            case Authorisation::asking:
                waiting_.push_back({alert, std::move(done)});
                return;
            case Authorisation::answered:
                add(alert, std::move(done));
                return;
        }
    }

private:
    enum class Authorisation { unasked, asking, answered };
    struct Waiting {
        Alert alert;
        Completion done;
    };

    void askOnce() {
        authorisation_ = Authorisation::asking;
        kestrow::MainLoop* loop = &loop_;  // lives for the process, like this notifier
        std::weak_ptr<bool> alive = alive_;
        [center_ requestAuthorizationWithOptions:UNAuthorizationOptionAlert
                               completionHandler:^(BOOL granted, NSError* error) {
                                 const std::string problem = granted ? std::string()
                                                             : error != nil ? describe(error)
                                                                            : std::string("not allowed");
                                 loop->post([this, alive, granted, problem] {
                                     if (!alive.lock()) return;
                                     answered(granted, problem);
                                 });
                               }];
    }

    void answered(bool granted, const std::string& problem) {
        authorisation_ = Authorisation::answered;
        if (!granted) kestrow::log::error(logCategory, "notifications not allowed: " + problem);
        // Even a refusal goes on to the centre: the user may allow notifications later, and the
        // centre's own answer for each alert says whether it got through.
        std::vector<Waiting> waiting = std::exchange(waiting_, {});
        for (Waiting& w : waiting) add(w.alert, std::move(w.done));
    }

    void add(const Alert& alert, Completion done) {
        UNMutableNotificationContent* content = [[UNMutableNotificationContent alloc] init];
        content.title = toNSString(alert.title);
        content.body = toNSString(alert.body);
        content.threadIdentifier = @"alerts";
        // One identifier per kind: a repeat of the same alert replaces the older one in the list.
        NSString* identifier = toNSString("alert." + std::string(alert.kind.rawValue()));
        UNNotificationRequest* request = [UNNotificationRequest requestWithIdentifier:identifier
                                                                              content:content
                                                                              trigger:nil];
        auto shared = std::make_shared<std::pair<Alert, Completion>>(alert, std::move(done));
        kestrow::MainLoop* loop = &loop_;
        std::weak_ptr<bool> alive = alive_;
        [center_ addNotificationRequest:request
                  withCompletionHandler:^(NSError* error) {
                    const std::string problem = error != nil ? describe(error) : std::string();
                    loop->post([this, alive, shared, problem] {
                        if (!alive.lock()) return;
                        finish(shared->first, std::move(shared->second), problem);
                    });
                  }];
    }

    // On the main loop: logs the outcome and tells the store. An empty problem means delivered.
    void finish(const Alert& alert, Completion done, const std::string& problem) {
        if (problem.empty()) kestrow::log::info(logCategory, "alert posted: " + alert.title);
        else kestrow::log::error(logCategory, "alert not delivered: " + alert.title + " (" + problem + ")");
        if (done) done(problem.empty());
    }

    kestrow::MainLoop& loop_;
    UNUserNotificationCenter* center_ = nil;
    BrimletNotificationPresenter* presenter_ = nil;
    Authorisation authorisation_ = Authorisation::unasked;
    std::vector<Waiting> waiting_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

std::unique_ptr<Notifier> makeUserNotificationNotifier(kestrow::MainLoop& loop, std::function<void()> onOpen) {
    return std::make_unique<UserNotificationNotifier>(loop, std::move(onOpen));
}

}  // namespace brimlet::mac
