// What a thread may tell the platform about itself. The calls differ per platform (Linux names
// another thread and caps names at 15 bytes; macOS names only the calling thread and has quality-of-
// service classes), so each platform folder supplies them and the logic stays free of conditionals.
#pragma once

#include <string>

namespace kestrow::thread {

// Names the calling thread for debuggers, crash reports and process listings. Where the platform
// limits the length, the name is cut to fit.
void nameCurrent(const std::string& name);

// Marks the calling thread as utility work: it waits most of the time and must not compete with
// the interface for the processor or the battery. A platform without such classes leaves it alone.
void markCurrentAsUtility();

}  // namespace kestrow::thread
