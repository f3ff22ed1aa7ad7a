// The last step of the cleanup window: the finished run's summary, its entries and its exports.
#pragma once

#import <AppKit/AppKit.h>

#include "app/CleanupStore.hpp"

@interface KBCleanupReportPane : NSObject
@property(nonatomic, readonly) NSView* view;
// `startOver` runs when the user asks for a fresh run.
- (instancetype)initWithStore:(brimlet::CleanupStore*)store startOver:(void (^)(void))startOver;
// Shows the store's last report.
- (void)refresh;
@end
