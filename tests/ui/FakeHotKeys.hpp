// The Carbon hot-key calls as this process would see them: one handler, and a refusal for keys that
// are already registered in the process.
#pragma once

#include <map>
#include <set>
#include <utility>

#include "suite/ui/GlobalHotKey.hpp"

namespace kestrow::suite::testing {

class FakeHotKeys final : public HotKeySystem {
public:
    bool installHandler(Handler h) override {
        ++installs;
        handler = std::move(h);
        return true;
    }
    void removeHandler() override {
        ++removals;
        handler = nullptr;
    }
    std::optional<Registration> registerHotKey(std::uint32_t keyCode, std::uint32_t modifiers, std::uint32_t,
                                               std::uint32_t) override {
        if (!held.insert({keyCode, modifiers}).second) return std::nullopt;
        const Registration r = next++;
        registrations[r] = {keyCode, modifiers};
        return r;
    }
    void unregisterHotKey(Registration r) override {
        held.erase(registrations.at(r));
        registrations.erase(r);
    }
    // The user presses keys registered under (signature, id); answers whether a handler took them.
    bool press(std::uint32_t signature, std::uint32_t id) { return handler && handler(signature, id); }

    Handler handler;
    int installs = 0, removals = 0;
    std::set<std::pair<std::uint32_t, std::uint32_t>> held;
    std::map<Registration, std::pair<std::uint32_t, std::uint32_t>> registrations;
    Registration next = 1;
};

}  // namespace kestrow::suite::testing
