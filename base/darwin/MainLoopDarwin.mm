// The macOS main loop: the main dispatch queue, which AppKit's run loop drains. Timers are dispatch
// timer sources on the wall clock (dispatch_walltime keeps counting while the Mac sleeps), folder
// watches are vnode sources on descriptors opened for events only, and wake comes from the
// workspace's notification. Compiled with ARC: dispatch objects are retained by the blocks and
// lambdas that hold them, and a source's handlers are released once it is cancelled.
#include "../MainLoop.hpp"

#import <AppKit/AppKit.h>
#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <mach/mach_time.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace kestrow {

namespace {

// Dispatch takes nanoseconds; a length beyond about 285 years is held there, short of the largest
// delta so that adding it to the current time cannot overflow.
std::int64_t nanoseconds(Seconds length) {
    const std::int64_t ns = wholeDuration<std::chrono::nanoseconds>(length).count();
    return std::min(ns, INT64_C(9000000000000000000));
}

// The shortest repeat: a zero interval would fire without end.
constexpr Seconds shortestInterval = std::chrono::milliseconds(1);

class DispatchMainLoop final : public MainLoop {
public:
    explicit DispatchMainLoop(bool handleSignals) {
        if (!handleSignals) return;
        for (const int number : {SIGINT, SIGTERM}) {
            ::signal(number, SIG_IGN); // the source below sees the signal instead of the default action
            dispatch_source_t source = dispatch_source_create(
                DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(number), 0, dispatch_get_main_queue());
            if (!source) continue;
            dispatch_source_set_event_handler(source, ^{ CFRunLoopStop(CFRunLoopGetMain()); });
            dispatch_resume(source);
            signalSources_.push_back(source);
        }
    }

    ~DispatchMainLoop() override {
        for (dispatch_source_t source : signalSources_)
            dispatch_source_cancel(source);
    }

    void post(Task task) override {
        auto shared = std::make_shared<Task>(std::move(task));
        dispatch_async(dispatch_get_main_queue(), ^{ (*shared)(); });
    }

    Token after(Seconds delay, Task task) override {
        return addTimer(delay, Seconds::zero(), Seconds::zero(), std::move(task));
    }

    Token repeat(Seconds interval, Seconds tolerance, Task task) override {
        interval = std::max(interval, shortestInterval);
        return addTimer(interval, interval, tolerance, std::move(task));
    }

    // A vnode source says that the folder changed, not which entries: every change is reported.
    Watch watchFolder(const std::string& path, Task onChange, NameFilter, Task onGone) override {
        const int fd = ::open(path.c_str(), O_EVTONLY | O_CLOEXEC);
        if (fd < 0)
            return {Token(), Status::failure("cannot watch " + path + " (errno " + std::to_string(errno) + ")")};
        const unsigned long goneFlags = DISPATCH_VNODE_DELETE | DISPATCH_VNODE_RENAME | DISPATCH_VNODE_REVOKE;
        dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_VNODE, static_cast<uintptr_t>(fd),
                                                          DISPATCH_VNODE_WRITE | goneFlags, dispatch_get_main_queue());
        if (!source) {
            ::close(fd);
            return {Token(), Status::failure("cannot watch " + path)};
        }
        auto changed = std::make_shared<Task>(std::move(onChange));
        auto gone = onGone ? std::make_shared<Task>(std::move(onGone)) : changed;
        // The handler names its own source; cancelling releases the handler, and the cycle with it.
        dispatch_source_set_event_handler(source, ^{
            if (dispatch_source_get_data(source) & goneFlags) {
                // Deleted, renamed or its volume gone: the descriptor no longer stands for the path.
                dispatch_source_cancel(source);
                (*gone)();
                return;
            }
            (*changed)();
        });
        dispatch_source_set_cancel_handler(source, ^{ ::close(fd); });
        dispatch_resume(source);
        return {Token([source] { dispatch_source_cancel(source); }), Status::success()};
    }

    Token onWake(Task task) override {
        auto shared = std::make_shared<Task>(std::move(task));
        NSNotificationCenter* center = [[NSWorkspace sharedWorkspace] notificationCenter];
        id observer = [center addObserverForName:NSWorkspaceDidWakeNotification
                                          object:nil
                                           queue:[NSOperationQueue mainQueue]
                                      usingBlock:^(NSNotification*) { (*shared)(); }];
        return Token([center, observer] { [center removeObserver:observer]; });
    }

    // A read source on the main queue; the descriptor stays the caller's, so cancelling closes nothing.
    Token watchReadable(int fd, Task onReadable) override {
        dispatch_source_t source =
            dispatch_source_create(DISPATCH_SOURCE_TYPE_READ, static_cast<uintptr_t>(fd), 0, dispatch_get_main_queue());
        if (!source) return Token();
        auto shared = std::make_shared<Task>(std::move(onReadable));
        dispatch_source_set_event_handler(source, ^{ (*shared)(); });
        dispatch_resume(source);
        return Token([source] { dispatch_source_cancel(source); });
    }

    ContinuousTime now() const override { return ContinuousClock::now(); }
    WallTime wallClock() const override { return WallClock::now(); }

    // Used where AppKit is not running (tools, tests); an application's AppKit run loop drains the
    // main queue by itself.
    void run() override { CFRunLoopRun(); }
    void stop() override { CFRunLoopStop(CFRunLoopGetMain()); }

private:
    Token addTimer(Seconds first, Seconds interval, Seconds tolerance, Task task) {
        dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_main_queue());
        if (!source) return Token();
        const bool oneShot = interval <= Seconds::zero();
        dispatch_source_set_timer(source, dispatch_walltime(nullptr, nanoseconds(first)),
                                  oneShot ? DISPATCH_TIME_FOREVER : static_cast<std::uint64_t>(nanoseconds(interval)),
                                  static_cast<std::uint64_t>(nanoseconds(tolerance)));
        auto shared = std::make_shared<Task>(std::move(task));
        dispatch_source_set_event_handler(source, ^{
            if (oneShot) dispatch_source_cancel(source);
            (*shared)();
        });
        dispatch_resume(source);
        return Token([source] { dispatch_source_cancel(source); });
    }

    std::vector<dispatch_source_t> signalSources_;
};

} // namespace

ContinuousClock::time_point ContinuousClock::now() noexcept {
    static const mach_timebase_info_data_t timebase = [] {
        mach_timebase_info_data_t info{};
        mach_timebase_info(&info);
        return info;
    }();
    // In double: ticks times numer may not fit 64 bits after a long uptime.
    const double ticks = static_cast<double>(mach_continuous_time());
    return time_point(duration(static_cast<rep>(ticks * timebase.numer / timebase.denom)));
}

std::unique_ptr<MainLoop> makeSystemMainLoop(bool handleSignals) {
    return std::make_unique<DispatchMainLoop>(handleSignals);
}

} // namespace kestrow
