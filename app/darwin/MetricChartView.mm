#include "MetricChartView.hpp"

#include <algorithm>
#include <cmath>

@implementation KBMetricChartView {
    NSUInteger _capacity;
    NSArray<NSColor*>* _colors;
    std::vector<brimlet::ChartSeries> _series;
    double _ceiling;
}

- (instancetype)initWithCapacity:(NSUInteger)capacity colors:(NSArray<NSColor*>*)colors {
    if ((self = [super initWithFrame:NSZeroRect])) {
        _capacity = std::max<NSUInteger>(capacity, 2);
        _colors = [colors copy];
        _ceiling = 1;
        self.accessibilityElement = YES;
        self.accessibilityRole = NSAccessibilityImageRole;
    }
    return self;
}

- (void)setSeries:(const std::vector<brimlet::ChartSeries>&)series ceiling:(double)ceiling summary:(NSString*)summary {
    _series = series;
    _ceiling = ceiling > 0 && std::isfinite(ceiling) ? ceiling : 1;
    self.accessibilityLabel = summary;
    self.needsDisplay = YES;
}

- (BOOL)isOpaque {
    return NO;
}

- (NSSize)intrinsicContentSize {
    return NSMakeSize(NSViewNoIntrinsicMetric, 110);
}

- (void)drawRect:(NSRect)dirtyRect {
    (void)dirtyRect;
    const NSRect bounds = NSInsetRect(self.bounds, 1, 2);

    // Quarter lines so the eye can read a level without numbers on the axis.
    [NSColor.separatorColor setStroke];
    for (int quarter = 0; quarter <= 4; ++quarter) {
        const CGFloat y = std::round(NSMinY(bounds) + NSHeight(bounds) * quarter / 4.0) + 0.5;
        NSBezierPath* rule = [NSBezierPath bezierPath];
        [rule moveToPoint:NSMakePoint(NSMinX(bounds), y)];
        [rule lineToPoint:NSMakePoint(NSMaxX(bounds), y)];
        rule.lineWidth = quarter == 0 ? 1 : 0.5;
        [rule stroke];
    }

    const CGFloat step = NSWidth(bounds) / static_cast<CGFloat>(_capacity - 1);
    for (std::size_t index = 0; index < _series.size(); ++index) {
        const auto& values = _series[index].values;
        NSColor* color = _colors.count ? _colors[index % _colors.count] : NSColor.controlAccentColor;
        NSBezierPath* line = [NSBezierPath bezierPath];
        line.lineWidth = 1.5;
        line.lineJoinStyle = NSLineJoinStyleRound;
        NSBezierPath* area = [NSBezierPath bezierPath];
        bool drawing = false;
        CGFloat runStartX = 0;
        CGFloat lastX = 0;
        const std::size_t count = std::min<std::size_t>(values.size(), _capacity);
        const std::size_t first = values.size() - count;
        for (std::size_t i = 0; i < count; ++i) {
            const auto& value = values[first + i];
            // The newest point sits at the right edge; older ones step leftwards.
            const CGFloat x = NSMaxX(bounds) - step * static_cast<CGFloat>(count - 1 - i);
            if (!value || !std::isfinite(*value)) {
                if (drawing) [self closeArea:area fromX:runStartX toX:lastX bottom:NSMinY(bounds)];
                drawing = false;
                continue;
            }
            const double fraction = std::clamp(*value / _ceiling, 0.0, 1.0);
            const NSPoint point = NSMakePoint(x, NSMinY(bounds) + NSHeight(bounds) * fraction);
            if (drawing) {
                [line lineToPoint:point];
                [area lineToPoint:point];
            } else {
                [line moveToPoint:point];
                [area moveToPoint:point];
                runStartX = x;
                drawing = true;
            }
            lastX = x;
        }
        if (drawing) [self closeArea:area fromX:runStartX toX:lastX bottom:NSMinY(bounds)];
        // Only the first line is filled: with two lines a second fill would hide the first.
        if (index == 0) {
            [[color colorWithAlphaComponent:0.15] setFill];
            [area fill];
        }
        [color setStroke];
        [line stroke];
    }
}

- (void)closeArea:(NSBezierPath*)area fromX:(CGFloat)startX toX:(CGFloat)endX bottom:(CGFloat)bottom {
    [area lineToPoint:NSMakePoint(endX, bottom)];
    [area lineToPoint:NSMakePoint(startX, bottom)];
    [area closePath];
}

@end
