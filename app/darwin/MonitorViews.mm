#include "MonitorViews.hpp"

#include "WindowKit.hpp"

namespace brimlet::mac {

NSImage* symbolImage(NSString* name, NSString* description) {
    NSImage* image = [NSImage imageWithSystemSymbolName:name accessibilityDescription:description];
    [image setTemplate:YES];
    return image;
}

NSImageView* symbolView(NSString* name) {
    NSImageView* view = [NSImageView imageViewWithImage:symbolImage(name, nil)];
    view.contentTintColor = NSColor.secondaryLabelColor;
    view.translatesAutoresizingMaskIntoConstraints = NO;
    return view;
}

void trackHover(NSView* view) {
    [view addTrackingArea:[[NSTrackingArea alloc] initWithRect:NSZeroRect
                                                       options:NSTrackingMouseEnteredAndExited |
                                                               NSTrackingActiveAlways | NSTrackingInVisibleRect
                                                         owner:view
                                                      userInfo:nil]];
}

NSFont* systemFont(CGFloat size, NSFontWeight weight) { return [NSFont systemFontOfSize:size weight:weight]; }

NSFont* figureFont(CGFloat size, NSFontWeight weight) {
    return [NSFont monospacedDigitSystemFontOfSize:size weight:weight];
}

NSColor* pressureColor(MemoryPressure pressure) {
    switch (pressure.value) {
    case MemoryPressure::normal:
        return NSColor.systemGreenColor;
    case MemoryPressure::warning:
        return NSColor.systemOrangeColor;
    case MemoryPressure::critical:
        return NSColor.systemRedColor;
    }
    return NSColor.secondaryLabelColor;
}

} // namespace brimlet::mac

using brimlet::mac::figureFont;
using brimlet::mac::makeLabel;

@implementation KBGaugeView

- (instancetype)initWithFrame:(NSRect)frame {
    if ((self = [super initWithFrame:frame])) _fillColor = NSColor.controlAccentColor;
    return self;
}

- (void)setFraction:(double)fraction {
    _fraction = fraction < 0 ? 0 : (fraction > 1 ? 1 : fraction);
    self.needsDisplay = YES;
}

- (void)setFillColor:(NSColor*)fillColor {
    _fillColor = fillColor;
    self.needsDisplay = YES;
}

- (void)drawRect:(NSRect)dirtyRect {
    (void)dirtyRect;
    const NSRect bounds = self.bounds;
    const CGFloat radius = NSHeight(bounds) / 2;
    [[NSColor.tertiaryLabelColor colorWithAlphaComponent:0.35] setFill];
    [[NSBezierPath bezierPathWithRoundedRect:bounds xRadius:radius yRadius:radius] fill];
    if (_fraction <= 0) return;
    NSRect filled = bounds;
    filled.size.width = MAX(NSHeight(bounds), NSWidth(bounds) * _fraction);
    [_fillColor setFill];
    [[NSBezierPath bezierPathWithRoundedRect:filled xRadius:radius yRadius:radius] fill];
}

- (BOOL)isAccessibilityElement {
    return NO; // the row it sits in reads the figure
}

@end

@implementation KBMetricRowView {
    NSImageView* _icon;
    NSString* _symbol;
    NSTextField* _title;
    NSTextField* _figure;
    NSTextField* _caption;
    NSTextField* _grade;
    KBGaugeView* _gauge;
}

- (instancetype)initWithFrame:(NSRect)frame {
    if (!(self = [super initWithFrame:frame])) return nil;
    self.translatesAutoresizingMaskIntoConstraints = NO;

    _icon = [[NSImageView alloc] initWithFrame:NSZeroRect];
    _icon.contentTintColor = NSColor.secondaryLabelColor;
    _icon.translatesAutoresizingMaskIntoConstraints = NO;
    _icon.symbolConfiguration = [NSImageSymbolConfiguration configurationWithPointSize:13 weight:NSFontWeightMedium];

    _title = makeLabel(@"", brimlet::mac::systemFont(13, NSFontWeightMedium), NSColor.labelColor);
    _figure = makeLabel(@"", figureFont(13, NSFontWeightRegular), NSColor.labelColor);
    _figure.alignment = NSTextAlignmentRight;
    [_figure setContentCompressionResistancePriority:NSLayoutPriorityRequired
                                      forOrientation:NSLayoutConstraintOrientationHorizontal];
    _caption = makeLabel(@"", brimlet::mac::systemFont(11, NSFontWeightRegular), NSColor.secondaryLabelColor);
    _caption.hidden = YES;
    _grade = makeLabel(@"", brimlet::mac::systemFont(11, NSFontWeightSemibold), NSColor.secondaryLabelColor);
    _grade.alignment = NSTextAlignmentRight;
    _gauge = [[KBGaugeView alloc] initWithFrame:NSZeroRect];
    _gauge.translatesAutoresizingMaskIntoConstraints = NO;
    _gauge.hidden = YES;

    NSStackView* topLine = [NSStackView stackViewWithViews:@[ _title, _figure ]];
    topLine.orientation = NSUserInterfaceLayoutOrientationHorizontal;
    topLine.distribution = NSStackViewDistributionFill;
    [_title setContentHuggingPriority:NSLayoutPriorityDefaultLow
                       forOrientation:NSLayoutConstraintOrientationHorizontal];

    NSStackView* column = [NSStackView stackViewWithViews:@[ topLine, _caption, _gauge ]];
    column.orientation = NSUserInterfaceLayoutOrientationVertical;
    column.alignment = NSLayoutAttributeLeading;
    column.spacing = 3;
    column.translatesAutoresizingMaskIntoConstraints = NO;

    [self addSubview:_icon];
    [self addSubview:column];
    [self addSubview:_grade];
    [NSLayoutConstraint activateConstraints:@[
        [_icon.leadingAnchor constraintEqualToAnchor:self.leadingAnchor],
        [_icon.widthAnchor constraintEqualToConstant:18],
        [_icon.centerYAnchor constraintEqualToAnchor:topLine.centerYAnchor],
        [column.leadingAnchor constraintEqualToAnchor:_icon.trailingAnchor constant:8],
        [column.topAnchor constraintEqualToAnchor:self.topAnchor],
        [column.bottomAnchor constraintEqualToAnchor:self.bottomAnchor],
        [topLine.widthAnchor constraintEqualToAnchor:column.widthAnchor],
        [_gauge.widthAnchor constraintEqualToAnchor:column.widthAnchor],
        [_gauge.heightAnchor constraintEqualToConstant:4],
        [_grade.leadingAnchor constraintEqualToAnchor:column.trailingAnchor constant:10],
        [_grade.trailingAnchor constraintEqualToAnchor:self.trailingAnchor],
        [_grade.widthAnchor constraintEqualToConstant:40],
        [_grade.centerYAnchor constraintEqualToAnchor:topLine.centerYAnchor],
    ]];

    self.accessibilityElement = YES;
    self.accessibilityRole = NSAccessibilityStaticTextRole;
    return self;
}

- (void)showReading:(const brimlet::ReadingRow&)row {
    NSString* symbol = brimlet::mac::toNSString(row.symbol);
    if (![symbol isEqualToString:_symbol]) {
        _symbol = symbol;
        _icon.image = brimlet::mac::symbolImage(symbol, nil);
    }
    _title.stringValue = brimlet::mac::toNSString(row.title);
    _figure.stringValue = brimlet::mac::toNSString(row.value);
    _caption.stringValue = brimlet::mac::toNSString(row.caption);
    _caption.hidden = row.caption.empty();
    _grade.stringValue = row.grade ? brimlet::mac::toNSString(row.grade->rawValue()) : @"";
    _grade.textColor = brimlet::mac::ratingColor(row.grade);
    _gauge.hidden = !row.gauge.has_value();
    if (row.gauge) {
        _gauge.fraction = *row.gauge;
        // Memory's gauge follows the pressure; the others their grade.
        if (row.pressure) _gauge.fillColor = brimlet::mac::pressureColor(*row.pressure);
        else if (row.grade) _gauge.fillColor = brimlet::mac::ratingColor(*row.grade);
    }
    self.accessibilityLabel = brimlet::mac::toNSString(row.accessibilityLabel);
}

@end
