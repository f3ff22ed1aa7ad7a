// System-wide shortcuts through Carbon's hot keys: still the only public way for an application to
// hear a key combination while another application is in front, without the Accessibility
// permission that an event tap needs. Compiled with ARC.
#include "SystemSuiteUI.hpp"

#include <Carbon/Carbon.h>

#include <string>

#include "base/Log.hpp"

namespace kestrow::suite::mac {

namespace {

class CarbonHotKeySystem final : public HotKeySystem {
public:
    bool installHandler(Handler handler) override {
        if (ref_ != nullptr) removeHandler();
        handler_ = std::move(handler);
        const EventTypeSpec pressed{kEventClassKeyboard, kEventHotKeyPressed};
        const OSStatus status = InstallEventHandler(GetApplicationEventTarget(), &CarbonHotKeySystem::pressedCallback,
                                                    1, &pressed, this, &ref_);
        if (status != noErr) {
            log::kit::error("hotKey", "hot key handler not installed: OSStatus " + std::to_string(status));
            ref_ = nullptr;
            handler_ = nullptr;
            return false;
        }
        return true;
    }

    void removeHandler() override {
        if (ref_ != nullptr) RemoveEventHandler(ref_);
        ref_ = nullptr;
        handler_ = nullptr;
    }

    std::optional<Registration> registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers, std::uint32_t signature,
                                               std::uint32_t id) override {
        EventHotKeyRef ref = nullptr;
        const EventHotKeyID hotKeyID{signature, id};
        // eventHotKeyExistsErr when this process already holds the same keys.
        const OSStatus status = RegisterEventHotKey(keyCode, modifiers, hotKeyID, GetApplicationEventTarget(), 0, &ref);
        if (status != noErr || ref == nullptr) return std::nullopt;
        return reinterpret_cast<Registration>(ref);
    }

    void unregisterHotKey(Registration registration) override {
        UnregisterEventHotKey(reinterpret_cast<EventHotKeyRef>(registration));
    }

private:
    // Carbon calls this on the main thread. Which id means what is HotKeyCenter's business.
    static OSStatus pressedCallback(EventHandlerCallRef next, EventRef event, void* userData) {
        (void)next;
        auto* self = static_cast<CarbonHotKeySystem*>(userData);
        EventHotKeyID hotKeyID{};
        const OSStatus status = GetEventParameter(event, kEventParamDirectObject, typeEventHotKeyID, nullptr,
                                                  sizeof hotKeyID, nullptr, &hotKeyID);
        // Not handled lets the event travel on to any other handler that waits for hot keys.
        const OSStatus notHandled = eventNotHandledErr;
        if (status != noErr || !self->handler_) return notHandled;
        return self->handler_(hotKeyID.signature, hotKeyID.id) ? OSStatus(noErr) : notHandled;
    }

    Handler handler_;
    EventHandlerRef ref_ = nullptr;
};

} // namespace

HotKeyCenter& systemHotKeyCenter(MainLoop& loop) {
    // One table per process, as Carbon has one application target. Never destroyed: at exit the
    // system drops the registrations with the process, and no static destructor races AppKit.
    static CarbonHotKeySystem* const system = new CarbonHotKeySystem();
    static HotKeyCenter* const center = new HotKeyCenter(*system, loop);
    return *center;
}

} // namespace kestrow::suite::mac
