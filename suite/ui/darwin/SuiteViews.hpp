// What the suite's AppKit pieces share: string and locale bridges, SF Symbols, the level tints, a
// button target that runs a C++ function, and the member row that the popover and the floating bar
// both list. Objective-C++ with ARC; main thread only.
#pragma once

#import <AppKit/AppKit.h>

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "base/darwin/Labels.hpp"
#include "base/darwin/StringBridge.hpp"
#include "suite/ui/GlobalHotKey.hpp"
#include "suite/ui/SuiteFormat.hpp"
#include "suite/ui/SuiteHost.hpp"
#include "suite/ui/SuiteScreens.hpp"

// Calls a C++ function when a control fires; controls keep their targets weakly, so the owner holds it.
@interface KestrowSuiteActionTarget : NSObject
- (instancetype)initWithAction:(std::function<void(id sender)>)action;
- (void)perform:(id)sender;
@end

// One member's line: level glyph, name and values. It acts as a button (click, Space or Return,
// VoiceOver's press) and highlights under the pointer like a menu item.
@interface KestrowSuiteRowView : NSView
// A drag that starts on the line moves its window instead (the floating bar is all lines).
@property BOOL dragsWindow;
- (instancetype)initWithMember:(const kestrow::suite::SuiteMemberRow&)member
                       compact:(BOOL)compact
                        action:(std::function<void()>)action;
@end

// The shared item's popover: the suite's members, and the switch that shows the floating bar.
@interface KestrowSuitePopoverController : NSViewController
// `dismiss` closes the popover after a member was opened from it. The host outlives the popover.
- (instancetype)initWithHost:(kestrow::suite::SuiteHost*)host dismiss:(std::function<void()>)dismiss;
// Lists the members again and re-reads the switch.
- (void)reload;
@end

namespace kestrow::suite::mac {

using kestrow::mac::toNSString;

// The separators of the user's current locale, followed as the user changes it.
NumberLocale currentNumberLocale();

// A template SF Symbol at `pointSize`; nil when the system lacks it.
NSImage* symbolImage(std::string_view name, std::string_view description, CGFloat pointSize);

// The system color for a level (ok green, notice orange, alert red), grey for a member not running.
NSColor* levelTint(GlanceLevel level, bool running);

using kestrow::mac::makeLabel;

// A flexible gap that pushes what follows it to the far edge of a horizontal stack.
NSView* makeSpacer();

// Swaps `old` for a tracking area that reports the pointer entering and leaving `view` wherever it is
// visible, even while the application is not active; returns the new one to keep.
NSTrackingArea* trackHover(NSView* view, NSTrackingArea* old);

// The host's screens as their presenter describes them now, in the user's current locale.
SuitePopoverScreen popoverScreen(SuiteHost& host);
SuiteBarScreen barScreen(SuiteHost& host);

// Another member's window comes forward through its open request; a member that is not running is
// launched from wherever Launch Services finds it.
void openMember(const SuiteRowLine& line);

// The pieces the host's factory hands out.
std::unique_ptr<SuiteStatusItem> makeSystemSuiteStatusItem(SuiteHost& host);
std::unique_ptr<SuiteFloatingPanel> makeSuiteFloatingBar(SuiteHost& host);

}  // namespace kestrow::suite::mac
