// The system-wide shortcut that shows the floating bar. The registration table (ids, their actions,
// one event handler for the whole application) is here; the Carbon calls sit behind `HotKeySystem`.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>

#include "base/MainLoop.hpp"
#include "base/WeakGuard.hpp"

namespace kestrow::suite {

// The platform's hot-key calls (RegisterEventHotKey and friends on macOS).
class HotKeySystem {
public:
    // Given the signature and id of a pressed hot key; answers whether it was handled.
    using Handler = std::function<bool(std::uint32_t signature, std::uint32_t id)>;
    using Registration = std::uintptr_t;

    virtual ~HotKeySystem() = default;
    // Installs the application's one handler for hot-key-pressed events.
    virtual bool installHandler(Handler handler) = 0;
    virtual void removeHandler() = 0;
    // None when refused, as when the same keys are already registered in this process.
    virtual std::optional<Registration> registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers,
                                                       std::uint32_t signature, std::uint32_t id) = 0;
    virtual void unregisterHotKey(Registration registration) = 0;
};

// The table shared by every shortcut of the process: id → action, and the one handler, installed
// when the first shortcut is made and removed when the last one is invalidated. Main thread only.
class HotKeyCenter {
public:
    // The library's own four-character code, "KSTW", marking the ids below as ours.
    static constexpr std::uint32_t signature = 0x4B535457;

    HotKeyCenter(HotKeySystem& system, MainLoop& loop);
    ~HotKeyCenter();
    HotKeyCenter(const HotKeyCenter&) = delete;
    HotKeyCenter& operator=(const HotKeyCenter&) = delete;

    // The handler's work: schedules the action of a known id of ours on the loop and says it handled
    // the event; anything else is left to other handlers.
    bool handle(std::uint32_t eventSignature, std::uint32_t id);
    bool handlerInstalled() const { return handlerInstalled_; }

private:
    friend class GlobalHotKey;

    HotKeySystem& system_;
    MainLoop& loop_;
    std::uint32_t nextId_ = 1;
    std::map<std::uint32_t, std::function<void()>> actions_;
    bool handlerInstalled_ = false;
    std::size_t holders_ = 0;
    kestrow::WeakGuard guard_;
};

class GlobalHotKey {
public:
    static constexpr std::string_view displayName = "\u2303\u2325M";  // ⌃⌥M
    static constexpr std::uint32_t keyCodeM = 46;
    static constexpr std::uint32_t controlKey = 0x1000;  // Carbon's modifier bits
    static constexpr std::uint32_t optionKey = 0x0800;
    // The modifiers of the shortcut above, wherever it is registered.
    static constexpr std::uint32_t controlOption = controlKey | optionKey;

    GlobalHotKey(HotKeyCenter& center, std::uint32_t keyCode, std::uint32_t modifiers, std::function<void()> action);
    ~GlobalHotKey() { invalidate(); }
    GlobalHotKey(const GlobalHotKey&) = delete;
    GlobalHotKey& operator=(const GlobalHotKey&) = delete;

    std::uint32_t keyCode() const { return keyCode_; }
    std::uint32_t modifiers() const { return modifiers_; }
    std::uint32_t id() const { return id_; }
    bool isRegistered() const { return registration_.has_value(); }
    // Unregisters the keys and lets go of the shared handler; harmless twice.
    void invalidate();

private:
    HotKeyCenter* center_;
    std::uint32_t keyCode_, modifiers_, id_;
    std::optional<HotKeySystem::Registration> registration_;
    bool holdsHandler_ = false;
};

}  // namespace kestrow::suite
