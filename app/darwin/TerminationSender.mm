// The quit event's sender is found through the code-signing service: the event carries the
// sender's audit token (or at least its process id), the service maps it to the running code, and
// the code's static code on disk gives its path and signing identifier. Any step that fails leaves
// the corresponding fields absent, which the quit rule reads as "not the intent service": the quit
// then proceeds, so a failure here can never trap the user in the app.
#include "TerminationSender.hpp"

#import <Foundation/Foundation.h>
#include <Security/Security.h>

#include <string>

#include "app/desktop/QuitRule.hpp"
#include "base/darwin/StringBridge.hpp"

namespace brimlet::mac {

using kestrow::mac::toNSString;
using kestrow::mac::utf8IfAny;

namespace {

// The running code that sent the event, owned by ARC; nil when it cannot be found.
id senderCode(NSAppleEventDescriptor* event) {
    NSAppleEventDescriptor* auditToken = [event attributeDescriptorForKeyword:QuitRule::senderAuditTokenKeyword];
    NSAppleEventDescriptor* processID = [event attributeDescriptorForKeyword:QuitRule::senderProcessIDKeyword];
    NSDictionary* attributes = nil;
    switch (QuitRule::senderLookup(auditToken != nil, processID != nil)) {
    case QuitRule::SenderLookup::byAuditToken:
        // The descriptor's bytes are the sender's audit_token_t, which is what the attribute takes.
        attributes = @{(__bridge NSString*)kSecGuestAttributeAudit : auditToken.data};
        break;
    case QuitRule::SenderLookup::byProcessID:
        attributes = @{(__bridge NSString*)kSecGuestAttributePid : @(processID.int32Value)};
        break;
    case QuitRule::SenderLookup::none:
        return nil;
    }
    SecCodeRef code = nullptr;
    if (SecCodeCopyGuestWithAttributes(nullptr, (__bridge CFDictionaryRef)attributes, kSecCSDefaultFlags, &code) !=
            errSecSuccess ||
        code == nullptr)
        return nil;
    return CFBridgingRelease(code);
}

std::optional<std::string> staticCodePath(SecCodeRef code) {
    SecStaticCodeRef staticCode = nullptr;
    if (SecCodeCopyStaticCode(code, kSecCSDefaultFlags, &staticCode) != errSecSuccess || staticCode == nullptr)
        return std::nullopt;
    id ownedStaticCode = CFBridgingRelease(staticCode);
    CFURLRef url = nullptr;
    if (SecCodeCopyPath((__bridge SecStaticCodeRef)ownedStaticCode, kSecCSDefaultFlags, &url) != errSecSuccess ||
        url == nullptr)
        return std::nullopt;
    NSURL* path = CFBridgingRelease(url);
    return utf8IfAny(path.path);
}

std::optional<std::string> signingIdentifier(SecCodeRef code) {
    // A running code is accepted where a static code is asked for; its code on disk is read.
    CFDictionaryRef information = nullptr;
    if (SecCodeCopySigningInformation(code, kSecCSDefaultFlags, &information) != errSecSuccess ||
        information == nullptr)
        return std::nullopt;
    NSDictionary* dictionary = CFBridgingRelease(information);
    id identifier = dictionary[(__bridge NSString*)kSecCodeInfoIdentifier]; // absent when unsigned
    if (![identifier isKindOfClass:[NSString class]]) return std::nullopt;
    return utf8IfAny(identifier);
}

} // namespace

std::optional<IntentQuitPolicy::Request> currentQuitRequest() {
    NSAppleEventDescriptor* event = [[NSAppleEventManager sharedAppleEventManager] currentAppleEvent];
    if (event == nil) return std::nullopt;

    std::optional<std::string> path;
    std::optional<std::string> signingID;
    if (id code = senderCode(event)) {
        path = staticCodePath((__bridge SecCodeRef)code);
        signingID = signingIdentifier((__bridge SecCodeRef)code);
    }
    const bool hasQuitReason = [event attributeDescriptorForKeyword:QuitRule::quitReasonKeyword] != nil;
    return QuitRule::request(event.eventClass, event.eventID, hasQuitReason, std::move(path), std::move(signingID));
}

} // namespace brimlet::mac
