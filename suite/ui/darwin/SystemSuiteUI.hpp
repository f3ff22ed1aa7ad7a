// The suite's AppKit pieces for the host: the shared status item, the floating bar's panel and the
// system-wide shortcut over Carbon.
#pragma once

#include "base/MainLoop.hpp"
#include "suite/ui/GlobalHotKey.hpp"
#include "suite/ui/SuiteHost.hpp"

namespace kestrow::suite::mac {

// The process's one table of hot keys over Carbon's RegisterEventHotKey.
HotKeyCenter& systemHotKeyCenter(MainLoop& loop);

// What the participant's host makes while this application hosts the active suite.
SuiteStatusItemFactory systemStatusItemFactory(MainLoop& loop, HotKeyCenter& hotKeys);

}  // namespace kestrow::suite::mac
