// Small AppKit pieces the monitor's surfaces share: text and symbol helpers, grade colors, a
// metric row (symbol, title, figure, caption, grade) and a capsule gauge. They only draw what they
// are given; the figures and words come from MonitorReadout and the core's grades.
#pragma once

#import <AppKit/AppKit.h>

#include <optional>
#include <string_view>

#include "app/screens/MonitorScreens.hpp"
#include "base/darwin/Labels.hpp"
#include "base/darwin/StringBridge.hpp"
#include "core/monitoring/MetricsHistory.hpp"

namespace brimlet::mac {

using kestrow::mac::toNSString;
// A template SF Symbol; its description is what VoiceOver reads when the image stands alone.
NSImage* symbolImage(NSString* name, NSString* description);
// A symbol in the secondary label color, as the rows and bars show them before a figure.
NSImageView* symbolView(NSString* name);
// Sends the view mouseEntered:/mouseExited: whenever the pointer crosses it, active or not.
void trackHover(NSView* view);
using kestrow::mac::makeLabel;
// The system font; and digits that do not jump as the figures change.
NSFont* systemFont(CGFloat size, NSFontWeight weight);
NSFont* figureFont(CGFloat size, NSFontWeight weight);
// System colors, so both appearances and Increase Contrast read well.
NSColor* pressureColor(MemoryPressure pressure);

}  // namespace brimlet::mac

// A filled capsule showing a share of 0…1.
@interface KBGaugeView : NSView
@property(nonatomic) double fraction;
@property(nonatomic, strong) NSColor* fillColor;
@end

// One line of the readout: symbol, title and figure on top, an optional caption below, and the
// area's grade as a colored word at the end. VoiceOver reads the row as one element, with the label
// its presenter wrote.
@interface KBMetricRowView : NSView
// Draws `row`: its symbol, words, grade and gauge (hidden where the row has none).
- (void)showReading:(const brimlet::ReadingRow&)row;
@end
