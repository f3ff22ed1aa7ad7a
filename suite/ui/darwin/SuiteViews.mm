// The suite views' common ground. Compiled with ARC.
#include "SuiteViews.hpp"

#include <cmath>
#include <string>

#include "base/Log.hpp"
#include "suite/ui/SuiteOpenObserver.hpp"
#include "suite/ui/SuiteParticipant.hpp"

@implementation KestrowSuiteActionTarget {
    std::function<void(id)> _action;
}

- (instancetype)initWithAction:(std::function<void(id)>)action {
    if ((self = [super init])) _action = std::move(action);
    return self;
}

- (void)perform:(id)sender {
    // Copied first: the action may tear down the object that owns this target.
    std::function<void(id)> action = _action;
    if (action) action(sender);
}

@end

@implementation KestrowSuiteRowView {
    std::function<void()> _action;
    BOOL _hovered;
    BOOL _dragging;
    NSEvent* _down;
    NSTrackingArea* _tracking;
}

- (instancetype)initWithMember:(const kestrow::suite::SuiteMemberRow&)member
                       compact:(BOOL)compact
                        action:(std::function<void()>)action {
    using namespace kestrow::suite;
    if (!(self = [super initWithFrame:NSZeroRect])) return nil;
    const SuiteRowLine& line = member.line;
    _action = std::move(action);

    const CGFloat size = compact ? NSFont.smallSystemFontSize : NSFont.systemFontSize;
    NSImageView* glyph = [[NSImageView alloc] initWithFrame:NSZeroRect];
    glyph.image = mac::symbolImage(line.symbol, SuiteFormat::levelWord(line.level), size);
    glyph.contentTintColor = mac::levelTint(line.level, line.running);
    [glyph setContentHuggingPriority:NSLayoutPriorityRequired forOrientation:NSLayoutConstraintOrientationHorizontal];

    NSTextField* name =
        mac::makeLabel(mac::toNSString(line.name), [NSFont systemFontOfSize:size weight:NSFontWeightMedium],
                       line.running ? NSColor.labelColor : NSColor.secondaryLabelColor);
    [name setContentHuggingPriority:NSLayoutPriorityDefaultHigh forOrientation:NSLayoutConstraintOrientationHorizontal];
    // Figures of equal width, so a changing value does not make the line jitter.
    NSTextField* values = mac::makeLabel(mac::toNSString(line.values),
                                         [NSFont monospacedDigitSystemFontOfSize:size weight:NSFontWeightRegular],
                                         NSColor.secondaryLabelColor);
    values.alignment = NSTextAlignmentRight;
    [values setContentHuggingPriority:NSLayoutPriorityDefaultLow
                       forOrientation:NSLayoutConstraintOrientationHorizontal];
    [values setContentCompressionResistancePriority:NSLayoutPriorityRequired
                                     forOrientation:NSLayoutConstraintOrientationHorizontal];

    NSStackView* stack = [NSStackView stackViewWithViews:@[ glyph, name, values ]];
    stack.orientation = NSUserInterfaceLayoutOrientationHorizontal;
    stack.alignment = NSLayoutAttributeCenterY;
    stack.spacing = compact ? 5 : 8;
    stack.translatesAutoresizingMaskIntoConstraints = NO;
    [self addSubview:stack];
    const CGFloat dx = compact ? 4 : 8, dy = compact ? 2 : 4;
    [NSLayoutConstraint activateConstraints:@[
        [stack.leadingAnchor constraintEqualToAnchor:self.leadingAnchor constant:dx],
        [stack.trailingAnchor constraintEqualToAnchor:self.trailingAnchor constant:-dx],
        [stack.topAnchor constraintEqualToAnchor:self.topAnchor constant:dy],
        [stack.bottomAnchor constraintEqualToAnchor:self.bottomAnchor constant:-dy],
    ]];

    // VoiceOver hears the whole line once, as a button, not its pieces one by one.
    for (NSView* part in @[ glyph, name, values ])
        [part setAccessibilityElement:NO];
    [self setAccessibilityElement:YES];
    [self setAccessibilityRole:NSAccessibilityButtonRole];
    [self setAccessibilityLabel:mac::toNSString(line.accessibilityLabel)];
    self.toolTip = mac::toNSString(member.help);
    return self;
}

- (void)perform {
    std::function<void()> action = _action;
    if (action) action();
}

- (BOOL)acceptsFirstMouse:(NSEvent*)event {
    (void)event;
    return YES; // one click acts, even in the floating bar's panel, which never takes focus for it
}

- (BOOL)acceptsFirstResponder {
    return YES;
}

- (BOOL)canBecomeKeyView {
    return YES;
}

- (void)keyDown:(NSEvent*)event {
    NSString* keys = event.charactersIgnoringModifiers;
    if ([keys isEqualToString:@" "] || [keys isEqualToString:@"\r"] || [keys isEqualToString:@"\x03"]) [self perform];
    else [super keyDown:event];
}

- (void)mouseDown:(NSEvent*)event {
    // Acts on release inside, as buttons do.
    _down = event;
    _dragging = NO;
}

- (void)mouseDragged:(NSEvent*)event {
    if (!self.dragsWindow || _dragging || _down == nil) return;
    const NSPoint from = _down.locationInWindow, to = event.locationInWindow;
    // A few points of play, so that a click with a shaky hand still opens the member.
    if (std::hypot(to.x - from.x, to.y - from.y) < 3) return;
    _dragging = YES;
    [self.window performWindowDragWithEvent:_down];
}

- (void)mouseUp:(NSEvent*)event {
    const BOOL clicked = !_dragging && _down != nil;
    _down = nil;
    _dragging = NO;
    if (clicked && NSPointInRect([self convertPoint:event.locationInWindow fromView:nil], self.bounds)) [self perform];
}

- (BOOL)accessibilityPerformPress {
    [self perform];
    return YES;
}

- (void)updateTrackingAreas {
    _tracking = kestrow::suite::mac::trackHover(self, _tracking);
    [super updateTrackingAreas];
}

- (void)mouseEntered:(NSEvent*)event {
    (void)event;
    _hovered = YES;
    self.needsDisplay = YES;
}

- (void)mouseExited:(NSEvent*)event {
    (void)event;
    _hovered = NO;
    self.needsDisplay = YES;
}

- (void)drawRect:(NSRect)dirtyRect {
    (void)dirtyRect;
    if (!_hovered) return;
    [NSColor.quaternaryLabelColor setFill];
    [[NSBezierPath bezierPathWithRoundedRect:self.bounds xRadius:5 yRadius:5] fill];
}

- (void)drawFocusRingMask {
    [[NSBezierPath bezierPathWithRoundedRect:self.bounds xRadius:5 yRadius:5] fill];
}

- (NSRect)focusRingMaskBounds {
    return self.bounds;
}

@end

namespace kestrow::suite::mac {

NumberLocale currentNumberLocale() {
    NSLocale* locale = NSLocale.autoupdatingCurrentLocale;
    NSNumberFormatter* formatter = [[NSNumberFormatter alloc] init];
    formatter.locale = locale;
    formatter.numberStyle = NSNumberFormatterDecimalStyle;
    NumberLocale numbers;
    if (NSString* decimal = formatter.decimalSeparator; decimal.length > 0)
        numbers.decimalSeparator = kestrow::mac::utf8(decimal);
    numbers.groupingSeparator = kestrow::mac::utf8(formatter.groupingSeparator);
    numbers.groupingSize = formatter.usesGroupingSeparator && formatter.groupingSize > 0
                               ? static_cast<std::size_t>(formatter.groupingSize)
                               : 0;
    return numbers;
}

NSImage* symbolImage(std::string_view name, std::string_view description, CGFloat pointSize) {
    NSImage* image = [NSImage imageWithSystemSymbolName:toNSString(name)
                               accessibilityDescription:toNSString(description)];
    if (image == nil) return nil;
    NSImage* sized = [image
        imageWithSymbolConfiguration:[NSImageSymbolConfiguration configurationWithPointSize:pointSize
                                                                                     weight:NSFontWeightRegular]];
    if (sized != nil) image = sized;
    [image setTemplate:YES]; // drawn in the menu bar's own color, light or dark
    return image;
}

NSColor* levelTint(GlanceLevel level, bool running) {
    if (!running) return NSColor.tertiaryLabelColor;
    switch (level.value) {
    case GlanceLevel::notice:
        return NSColor.systemOrangeColor;
    case GlanceLevel::alert:
        return NSColor.systemRedColor;
    case GlanceLevel::ok:
        break;
    }
    return NSColor.systemGreenColor;
}

NSView* makeSpacer() {
    NSView* spacer = [[NSView alloc] initWithFrame:NSZeroRect];
    [spacer setContentHuggingPriority:NSLayoutPriorityDefaultLow
                       forOrientation:NSLayoutConstraintOrientationHorizontal];
    return spacer;
}

NSTrackingArea* trackHover(NSView* view, NSTrackingArea* old) {
    if (old != nil) [view removeTrackingArea:old];
    NSTrackingArea* area = [[NSTrackingArea alloc]
        initWithRect:NSZeroRect
             options:NSTrackingMouseEnteredAndExited | NSTrackingActiveAlways | NSTrackingInVisibleRect
               owner:view
            userInfo:nil];
    [view addTrackingArea:area];
    return area;
}

SuitePopoverScreen popoverScreen(SuiteHost& host) {
    return SuiteScreens::popover(host.participant().rows(), host.floatingVisible(), host.hotKeyRegistered(),
                                 currentNumberLocale());
}

SuiteBarScreen barScreen(SuiteHost& host) {
    return SuiteScreens::bar(host.participant().rows(), host.floatingExpanded(), currentNumberLocale());
}

void openMember(const SuiteRowLine& line) {
    const std::string id(line.app.rawValue());
    if (line.running) {
        // The member observes its own id under this name and brings its window forward.
        [[NSDistributedNotificationCenter defaultCenter]
            postNotificationName:toNSString(SuiteOpenObserver::notificationName())
                          object:toNSString(id)
                        userInfo:nil
              deliverImmediately:YES];
        return;
    }
    NSURL* url =
        [NSWorkspace.sharedWorkspace URLForApplicationWithBundleIdentifier:toNSString(line.app.bundleIdentifier())];
    if (url == nil) {
        log::kit::error("suiteViews",
                        "cannot open " + id + ": no application with identifier " + line.app.bundleIdentifier());
        return;
    }
    NSWorkspaceOpenConfiguration* configuration = [NSWorkspaceOpenConfiguration configuration];
    configuration.activates = YES;
    [NSWorkspace.sharedWorkspace
        openApplicationAtURL:url
               configuration:configuration
           completionHandler:^(NSRunningApplication* app, NSError* error) {
               (void)app;
               if (error != nil)
                   log::kit::error("suiteViews",
                                   "cannot open " + id + ": " + kestrow::mac::utf8(error.localizedDescription));
           }];
}

} // namespace kestrow::suite::mac
