// A stand-in for a desktop's notification daemon: owns org.freedesktop.Notifications on the session
// bus and appends every notification it is sent to a file, one "summary<TAB>body<TAB>icon<TAB>urgency"
// line each. It creates the file only once it owns the name, so a test waits for the file. With
// "--silent" it owns the name but never answers, as a hung daemon would. Ends on SIGTERM.
//
// It uses the same run-time-loaded sd-bus calls as the app, so it builds without libsystemd's
// development files.
#include <cstdio>
#include <cstring>
#include <string>

#include "app/linux/SessionBusLibrary.hpp"

namespace {

using namespace brimlet;

std::string outputPath;
bool silent = false;
unsigned nextId = 1;

// Reads the hints dictionary far enough to find the urgency byte; -1 when it is not there.
int urgencyOf(sdbus::Message* message) {
    const sdbus::Library& bus = *sdbus::library();
    // The actions array comes first; the app sends none.
    if (bus.messageRead(message, "as", 0) < 0) return -1;
    unsigned char urgency = 0;
    // One entry, as the app sends it: {"urgency": <byte>}.
    const char* key = nullptr;
    if (bus.messageRead(message, "a{sv}", 1, &key, "y", &urgency) < 0) return -1;
    return key && std::strcmp(key, "urgency") == 0 ? urgency : -1;
}

int handle(sdbus::Message* message, void*, sdbus::Error*) {
    const sdbus::Library& bus = *sdbus::library();
    if (!bus.isMethodCall(message, "org.freedesktop.Notifications", "Notify")) return 0;
    if (silent) return 1;  // taken, never answered
    const char *app = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr;
    unsigned replaces = 0;
    int r = bus.messageRead(message, "susss", &app, &replaces, &icon, &summary, &body);
    if (r < 0) return r;
    const int urgency = urgencyOf(message);
    if (FILE* out = std::fopen(outputPath.c_str(), "a")) {
        std::fprintf(out, "%s\t%s\t%s\t%d\n", summary, body, icon, urgency);
        std::fclose(out);
    }
    return bus.replyMethodReturn(message, "u", nextId++);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[2], "--silent") == 0) silent = true;
    else if (argc != 2) {
        std::fputs("usage: notification_sink OUTPUT [--silent]\n", stderr);
        return 2;
    }
    outputPath = argv[1];
    const sdbus::Library* library = sdbus::library();
    if (!library) {
        std::fputs("notification_sink: libsystemd.so.0 could not be loaded\n", stderr);
        return 1;
    }
    const sdbus::Library& bus = *library;
    sdbus::Bus* connection = nullptr;
    sdbus::Slot* slot = nullptr;
    int r = bus.openUser(&connection);
    if (r >= 0) r = bus.addObject(connection, &slot, "/org/freedesktop/Notifications", handle, nullptr);
    if (r >= 0) r = bus.requestName(connection, "org.freedesktop.Notifications", 0);
    if (r < 0) {
        std::fprintf(stderr, "notification_sink: %s\n", std::strerror(-r));
        return 1;
    }
    if (FILE* ready = std::fopen(outputPath.c_str(), "a")) std::fclose(ready);
    for (;;) {
        r = bus.process(connection, nullptr);
        if (r < 0) return 1;
        if (r > 0) continue;
        if (bus.wait(connection, UINT64_MAX) < 0) return 1;
    }
}
