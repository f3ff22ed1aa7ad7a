// A small live chart: one or more lines over the last 5 minutes on a shared scale, newest at the
// right edge. Gaps in a line (a figure that could not be measured) break it rather than drawing zero.
#pragma once

#import <AppKit/AppKit.h>

#include <vector>

#include "app/screens/DashboardFigures.hpp"

@interface KBMetricChartView : NSView
// The points a full history holds: the chart's width is divided into this many steps.
- (instancetype)initWithCapacity:(NSUInteger)capacity colors:(NSArray<NSColor*>*)colors;
// One series per color, in the same order; `ceiling` is the top of the scale. The VoiceOver label
// becomes `summary`.
- (void)setSeries:(const std::vector<brimlet::ChartSeries>&)series ceiling:(double)ceiling summary:(NSString*)summary;
@end
