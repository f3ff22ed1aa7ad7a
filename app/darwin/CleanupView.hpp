// The cleanup window's content, made by the window presenter when the "cleanup" window opens.
#pragma once

#import <AppKit/AppKit.h>

#include "app/startup/BrimletApplication.hpp"

namespace brimlet::mac {

// The view controller of the whole cleanup flow over the application's cleanup store: measure,
// choose, approve, clean, report.
NSViewController* makeCleanupViewController(BrimletApplication& application);

}  // namespace brimlet::mac
