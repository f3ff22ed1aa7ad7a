// Bringing this application forward before a window, popover or question. Objective-C++ with AppKit.
#pragma once

#import <AppKit/AppKit.h>
#import <objc/message.h>

namespace kestrow::mac {

// Cooperatively where the system offers it (-[NSApplication activate], macOS 14, which this SDK
// does not declare), else by the older request that macOS 14 deprecates.
inline void activateApplication() {
    SEL cooperative = NSSelectorFromString(@"activate");
    if ([NSApp respondsToSelector:cooperative]) {
        reinterpret_cast<void (*)(id, SEL)>(objc_msgSend)(NSApp, cooperative);
        return;
    }
    [NSApp activateIgnoringOtherApps:YES];
}

}  // namespace kestrow::mac
