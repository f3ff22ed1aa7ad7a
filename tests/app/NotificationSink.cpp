// A stand-in for a desktop's notification daemon: owns org.freedesktop.Notifications on the session
// bus and appends every notification it is sent to a file, one "summary<TAB>body" line each. It
// creates the file only once it owns the name, so a test waits for the file. Ends on SIGTERM.
#include <systemd/sd-bus.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

std::string outputPath;
unsigned nextId = 1;

int notify(sd_bus_message* message, void*, sd_bus_error*) {
    const char *app = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr;
    unsigned replaces = 0;
    int r = sd_bus_message_read(message, "susss", &app, &replaces, &icon, &summary, &body);
    if (r < 0) return r;
    if (FILE* out = std::fopen(outputPath.c_str(), "a")) {
        std::fprintf(out, "%s\t%s\n", summary, body);
        std::fclose(out);
    }
    return sd_bus_reply_method_return(message, "u", nextId++);
}

const sd_bus_vtable vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", notify, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: notification_sink OUTPUT\n", stderr);
        return 2;
    }
    outputPath = argv[1];
    sd_bus* bus = nullptr;
    sd_bus_slot* slot = nullptr;
    int r = sd_bus_open_user(&bus);
    if (r >= 0)
        r = sd_bus_add_object_vtable(bus, &slot, "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                                     vtable, nullptr);
    if (r >= 0) r = sd_bus_request_name(bus, "org.freedesktop.Notifications", 0);
    if (r < 0) {
        std::fprintf(stderr, "notification_sink: %s\n", std::strerror(-r));
        return 1;
    }
    if (FILE* ready = std::fopen(outputPath.c_str(), "a")) std::fclose(ready);
    for (;;) {
        r = sd_bus_process(bus, nullptr);
        if (r < 0) return 1;
        if (r > 0) continue;
        if (sd_bus_wait(bus, UINT64_MAX) < 0) return 1;
    }
}
