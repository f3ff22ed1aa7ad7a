#include "DockAccessibility.hpp"

#import <AppKit/AppKit.h>
#import <ApplicationServices/ApplicationServices.h>

#include <climits>
#include <optional>
#include <string>

#include "base/darwin/StringBridge.hpp"

namespace brimlet::mac::DockAccessibility {

namespace {

// A Dock that hangs must not hang the menu bar with it: each question to it gives up after this.
constexpr float dockMessagingTimeout = 0.25f;

// The attribute's value handed to ARC, or nil when the element does not have it.
id attribute(AXUIElementRef element, CFStringRef name) {
    CFTypeRef value = nullptr;
    if (AXUIElementCopyAttributeValue(element, name, &value) != kAXErrorSuccess || value == nullptr) return nil;
    return CFBridgingRelease(value);
}

NSString* stringAttribute(AXUIElementRef element, CFStringRef name) {
    id value = attribute(element, name);
    return [value isKindOfClass:[NSString class]] ? value : nil;
}

NSArray* childrenOf(AXUIElementRef element) {
    id value = attribute(element, kAXChildrenAttribute);
    return [value isKindOfClass:[NSArray class]] ? value : @[];
}

// A point or a size wrapped in an AXValue; none for anything else (an error in a bulk read comes
// back as an AXValue of the error type, which this rejects too).
template <typename T> std::optional<T> unwrapped(id value, AXValueType type) {
    if (value == nil || CFGetTypeID((__bridge CFTypeRef)value) != AXValueGetTypeID()) return std::nullopt;
    if (AXValueGetType((__bridge AXValueRef)value) != type) return std::nullopt;
    T result{};
    if (!AXValueGetValue((__bridge AXValueRef)value, type, &result)) return std::nullopt;
    return result;
}

// One question to the Dock per icon, not five: a slow Dock then costs one timeout per icon at most.
std::optional<DockItem> dockItem(AXUIElementRef element) {
    NSArray* names = @[
        (__bridge NSString*)kAXSubroleAttribute, (__bridge NSString*)kAXPositionAttribute,
        (__bridge NSString*)kAXSizeAttribute, (__bridge NSString*)kAXTitleAttribute, (__bridge NSString*)kAXURLAttribute
    ];
    CFArrayRef copied = nullptr;
    if (AXUIElementCopyMultipleAttributeValues(element, (__bridge CFArrayRef)names, 0, &copied) != kAXErrorSuccess ||
        copied == nullptr)
        return std::nullopt;
    NSArray* values = CFBridgingRelease(copied);
    if (values.count != names.count) return std::nullopt;
    id subrole = values[0];
    if (![subrole isKindOfClass:[NSString class]] ||
        ![subrole isEqualToString:(__bridge NSString*)kAXApplicationDockItemSubrole])
        return std::nullopt;
    const auto position = unwrapped<CGPoint>(values[1], kAXValueTypeCGPoint);
    const auto size = unwrapped<CGSize>(values[2], kAXValueTypeCGSize);
    if (!position || !size) return std::nullopt;
    DockItem item;
    if ([values[3] isKindOfClass:[NSString class]]) item.title = kestrow::mac::utf8((NSString*)values[3]);
    // The path in the file system's own bytes, as the process sampler reads applications' paths,
    // so that the two compare equal.
    id url = values[4];
    char path[PATH_MAX];
    if ([url isKindOfClass:[NSURL class]] && [(NSURL*)url isFileURL] &&
        [(NSURL*)url getFileSystemRepresentation:path maxLength:sizeof path])
        item.bundlePath = std::string(path);
    item.axFrame = Rect{{position->x, position->y}, {size->width, size->height}};
    return item;
}

// Every element's questions give up after the timeout only when it is set on the system-wide
// element; set on one element it covers that element alone, not the children read from it.
void limitMessaging() {
    static const bool limited = [] {
        AXUIElementRef systemWide = AXUIElementCreateSystemWide();
        if (systemWide == nullptr) return false;
        AXUIElementSetMessagingTimeout(systemWide, dockMessagingTimeout);
        CFRelease(systemWide);
        return true;
    }();
    (void)limited;
}

} // namespace

bool isTrusted(bool prompt) {
    if (!prompt) return AXIsProcessTrusted();
    NSDictionary* options = @{(__bridge NSString*)kAXTrustedCheckOptionPrompt : @YES};
    return AXIsProcessTrustedWithOptions((__bridge CFDictionaryRef)options);
}

std::vector<DockItem> applicationItems() {
    std::vector<DockItem> items;
    if (!AXIsProcessTrusted()) return items;
    NSRunningApplication* dock =
        [NSRunningApplication runningApplicationsWithBundleIdentifier:@"com.apple.dock"].firstObject;
    if (dock == nil) return items;

    id application = CFBridgingRelease(AXUIElementCreateApplication(dock.processIdentifier));
    if (application == nil) return items;
    limitMessaging();
    AXUIElementRef root = (__bridge AXUIElementRef)application;
    AXUIElementSetMessagingTimeout(root, dockMessagingTimeout);

    // The Dock holds its icons in one list (its two parts, applications and documents, share it);
    // only application icons stand for something that can run and use memory.
    for (id list in childrenOf(root)) {
        AXUIElementRef listElement = (__bridge AXUIElementRef)list;
        if (![stringAttribute(listElement, kAXRoleAttribute) isEqualToString:(__bridge NSString*)kAXListRole]) continue;
        for (id child in childrenOf(listElement)) {
            if (auto item = dockItem((__bridge AXUIElementRef)child)) items.push_back(std::move(*item));
        }
    }
    return items;
}

} // namespace brimlet::mac::DockAccessibility
