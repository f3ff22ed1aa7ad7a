// The last step of the cleanup window: the finished run's summary, its entries and its exports,
// drawn from the presenter's `CleanupScreen::Finished`.
#pragma once

#import <AppKit/AppKit.h>

#include <functional>

#include "app/screens/CleanupScreen.hpp"

@interface KBCleanupReportPane : NSObject
@property(nonatomic, readonly) NSView* view;
// `perform` hands a control's action back (Start Over); the exports are the pane's own work.
- (instancetype)initWithPresenter:(brimlet::CleanupPresenter*)presenter
                          perform:(std::function<void(const brimlet::CleanupControl&)>)perform;
- (void)show:(const brimlet::CleanupScreen::Finished&)finished;
@end
