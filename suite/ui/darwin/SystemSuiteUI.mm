// Placeholder: the shared status item, the floating panel and the Carbon hot keys.
#include "SystemSuiteUI.hpp"

namespace kestrow::suite::mac {

namespace {

// Registers nothing: every shortcut reports itself as not registered.
class NoHotKeys final : public HotKeySystem {
public:
    bool installHandler(Handler) override { return true; }
    void removeHandler() override {}
    std::optional<Registration> registerHotKey(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t) override {
        return std::nullopt;
    }
    void unregisterHotKey(Registration) override {}
};

}  // namespace

HotKeyCenter& systemHotKeyCenter(MainLoop& loop) {
    static NoHotKeys system;
    static HotKeyCenter center(system, loop);
    return center;
}

SuiteStatusItemFactory systemStatusItemFactory(MainLoop&, HotKeyCenter& hotKeys) {
    SuiteStatusItemFactory factory;
    factory.hotKeys = &hotKeys;
    return factory;
}

}  // namespace kestrow::suite::mac
