#include "SessionBusLibrary.hpp"

#include <dlfcn.h>

namespace brimlet::sdbus {

namespace {

template <typename Function>
bool bind(void* handle, Function& function, const char* symbol) {
    function = reinterpret_cast<Function>(::dlsym(handle, symbol));
    return function != nullptr;
}

const Library* load() {
    void* handle = ::dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
    if (!handle) return nullptr;
    static Library loaded;
    const bool complete = bind(handle, loaded.openUser, "sd_bus_open_user") &&
                          bind(handle, loaded.closeUnref, "sd_bus_close_unref") &&
                          bind(handle, loaded.process, "sd_bus_process") && bind(handle, loaded.wait, "sd_bus_wait") &&
                          bind(handle, loaded.callMethodAsync, "sd_bus_call_method_async") &&
                          bind(handle, loaded.slotUnref, "sd_bus_slot_unref") &&
                          bind(handle, loaded.messageError, "sd_bus_message_get_error") &&
                          bind(handle, loaded.messageRead, "sd_bus_message_read") &&
                          bind(handle, loaded.addObject, "sd_bus_add_object") &&
                          bind(handle, loaded.requestName, "sd_bus_request_name") &&
                          bind(handle, loaded.isMethodCall, "sd_bus_message_is_method_call") &&
                          bind(handle, loaded.replyMethodReturn, "sd_bus_reply_method_return");
    // The handle stays open for the life of the process: the functions above point into it.
    return complete ? &loaded : nullptr;
}

}  // namespace

const Library* library() {
    static const Library* const loaded = load();
    return loaded;
}

}  // namespace brimlet::sdbus
