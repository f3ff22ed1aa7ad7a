// The few sd-bus calls the Linux app makes, loaded from libsystemd at run time. Desktop
// notifications are a nicety: a machine without libsystemd's development files still builds the
// program, and a machine without the library at all still runs it, with alerts only in the log.
// The declarations mirror libsystemd's public, stable C interface; only what we call is declared.
#pragma once

#include <cstdint>

namespace brimlet::sdbus {

struct Bus;
struct Message;
struct Slot;

// The public layout of sd_bus_error, unchanged since libsystemd's first release.
struct Error {
    const char* name = nullptr;
    const char* message = nullptr;
    int needFree = 0;
};

using MessageHandler = int (*)(Message* message, void* userdata, Error* error);

struct Library {
    int (*openUser)(Bus** bus) = nullptr;
    Bus* (*closeUnref)(Bus* bus) = nullptr;  // closes at once, without flushing what is queued
    int (*process)(Bus* bus, Message** received) = nullptr;
    int (*wait)(Bus* bus, std::uint64_t timeoutMicroseconds) = nullptr;
    int (*callMethodAsync)(Bus* bus, Slot** slot, const char* destination, const char* path, const char* interface,
                           const char* member, MessageHandler callback, void* userdata, const char* types,
                           ...) = nullptr;
    Slot* (*slotUnref)(Slot* slot) = nullptr;
    const Error* (*messageError)(Message* message) = nullptr;
    int (*messageRead)(Message* message, const char* types, ...) = nullptr;
    // Only the test notification service needs these; they load with the rest.
    int (*addObject)(Bus* bus, Slot** slot, const char* path, MessageHandler callback, void* userdata) = nullptr;
    int (*requestName)(Bus* bus, const char* name, std::uint64_t flags) = nullptr;
    int (*isMethodCall)(Message* message, const char* interface, const char* member) = nullptr;
    int (*replyMethodReturn)(Message* call, const char* types, ...) = nullptr;
};

// The library, loaded on first use from "libsystemd.so.0"; null when it or any call is missing.
// Safe to call from any thread; the answer never changes afterwards.
const Library* library();

}  // namespace brimlet::sdbus
