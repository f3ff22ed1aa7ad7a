// What a platform provides to the base library. Each entry is declared in the header named beside it
// and defined in this platform's folder (base/linux/, base/darwin/). A port defines every one; the
// test PlatformSeams.EveryEntryIsDefined takes each address, so a missing entry is one link error
// there, with this whole list beside it, rather than a surprise deep in the application.
#pragma once

#include <tuple>

#include "CLocaleNumbers.hpp"
#include "Files.hpp"
#include "Log.hpp"
#include "MainLoop.hpp"
#include "ThreadSupport.hpp"
#include "Time.hpp"
#include "UserDefaults.hpp"

namespace kestrow::platform {

inline constexpr auto baseSeams = std::make_tuple(
    &ContinuousClock::now,          // Time.hpp: a clock that keeps counting while the machine sleeps
    &makeSystemMainLoop,            // MainLoop.hpp: the loop (epoll and signalfd; the main dispatch queue)
    &thread::nameCurrent,           // ThreadSupport.hpp: names a thread for debuggers and the log
    &thread::markCurrentAsUtility,  // ThreadSupport.hpp: lowers a worker's priority where the system allows
    static_cast<void (*)(log::Subsystem, log::Level, std::string_view, std::string_view)>(&log::write),
    // Log.hpp: the one log (stderr; the unified log)
    &readCLocaleDouble,       // CLocaleNumbers.hpp: a number read in the C locale, whatever the user's
    &exchangeAt,              // Files.hpp: two names of a held folder swapped in one step, where possible
    &UserDefaults::standard,  // UserDefaults.hpp: the application's defaults
    &UserDefaults::named);    // UserDefaults.hpp: a named domain shared with other apps

}  // namespace kestrow::platform
