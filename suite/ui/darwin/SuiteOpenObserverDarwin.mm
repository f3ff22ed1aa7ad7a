// Open requests arrive through the distributed notification centre: the name is the suite's domain
// followed by ".open", the object is the id of the application to open. Compiled with ARC.
#include "../SuiteOpenObserver.hpp"

#include "base/darwin/StringBridge.hpp"

#import <Foundation/Foundation.h>

@interface KestrowSuiteOpenTarget : NSObject
- (instancetype)initWithAction:(std::function<void()>)action;
- (void)openRequested:(NSNotification*)notification;
@end

@implementation KestrowSuiteOpenTarget {
    std::function<void()> _action;
}

- (instancetype)initWithAction:(std::function<void()>)action {
    if ((self = [super init])) _action = std::move(action);
    return self;
}

- (void)openRequested:(NSNotification*)notification {
    (void)notification;
    // Delivered on the main thread, where the observer was added.
    if (_action) _action();
}

@end

namespace kestrow::suite {

namespace {

class DistributedOpenObserver final : public SuiteOpenObserver {
public:
    DistributedOpenObserver(SuiteApp app, std::function<void()> onOpen)
        : target_([[KestrowSuiteOpenTarget alloc] initWithAction:std::move(onOpen)]) {
        NSString* name = kestrow::mac::toNSString(notificationName());
        NSString* object = kestrow::mac::toNSString(app.rawValue());
        [[NSDistributedNotificationCenter defaultCenter]
                   addObserver:target_
                      selector:@selector(openRequested:)
                          name:name
                        object:object
            suspensionBehavior:NSNotificationSuspensionBehaviorDeliverImmediately];
    }
    ~DistributedOpenObserver() override { [[NSDistributedNotificationCenter defaultCenter] removeObserver:target_]; }

private:
    KestrowSuiteOpenTarget* target_;
};

} // namespace

std::unique_ptr<SuiteOpenObserver> SuiteOpenObserver::make(SuiteApp app, std::function<void()> onOpen) {
    return std::make_unique<DistributedOpenObserver>(app, std::move(onOpen));
}

} // namespace kestrow::suite
