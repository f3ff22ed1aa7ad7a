#include "DockAccessibility.hpp"

#import <AppKit/AppKit.h>
#import <ApplicationServices/ApplicationServices.h>

#include <climits>
#include <optional>
#include <string>

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

// A point or a size wrapped in an AXValue.
template <typename T>
std::optional<T> wrappedValue(AXUIElementRef element, CFStringRef name, AXValueType type) {
    id value = attribute(element, name);
    if (value == nil || CFGetTypeID((__bridge CFTypeRef)value) != AXValueGetTypeID()) return std::nullopt;
    T result{};
    if (!AXValueGetValue((__bridge AXValueRef)value, type, &result)) return std::nullopt;
    return result;
}

std::optional<DockItem> dockItem(AXUIElementRef element) {
    NSString* subrole = stringAttribute(element, kAXSubroleAttribute);
    if (![subrole isEqualToString:(__bridge NSString*)kAXApplicationDockItemSubrole]) return std::nullopt;
    const auto position = wrappedValue<CGPoint>(element, kAXPositionAttribute, kAXValueTypeCGPoint);
    const auto size = wrappedValue<CGSize>(element, kAXSizeAttribute, kAXValueTypeCGSize);
    if (!position || !size) return std::nullopt;

    DockItem item;
    if (const char* title = stringAttribute(element, kAXTitleAttribute).UTF8String) item.title = title;
    // The path in the file system's own bytes, as the process sampler reads applications' paths,
    // so that the two compare equal.
    id url = attribute(element, kAXURLAttribute);
    char path[PATH_MAX];
    if ([url isKindOfClass:[NSURL class]] && [(NSURL*)url isFileURL] &&
        [(NSURL*)url getFileSystemRepresentation:path maxLength:sizeof path])
        item.bundlePath = std::string(path);
    item.axFrame = Rect{position->x, position->y, size->width, size->height};
    return item;
}

}  // namespace

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

}  // namespace brimlet::mac::DockAccessibility
