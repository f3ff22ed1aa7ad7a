// The content of the menu bar item's popover: the machine's figures with their grades, the apps
// using the most memory (each can be asked to quit), a note about an alert that could not be shown,
// and the ways into the windows. It redraws from the monitor store; it decides nothing itself.
#pragma once

#import <AppKit/AppKit.h>

#include "MacFrontEnd.hpp"

@interface KBMonitorPopoverController : NSViewController
// The popover showing this content; the window buttons close it before opening a window.
@property(nonatomic, weak) NSPopover* popover;
- (instancetype)initWithStore:(brimlet::MonitorStore&)store windows:(brimlet::mac::WindowPresenter&)windows;
// Reads the store again; cheap enough for every change while the popover shows.
- (void)refresh;
// The popover is on screen, or closed: a note the user has seen is cleared from the store on close.
- (void)popoverDidShow;
- (void)popoverDidClose;
// The menu bar goes: no more calls into the store or the presenter.
- (void)detach;
@end
