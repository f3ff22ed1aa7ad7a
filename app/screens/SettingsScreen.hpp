// The settings window as plain values: its sections, each row's caption and control (checkbox,
// menu of choices or note) with the state it shows and the action it triggers. A front end lays the
// rows out and hands a change back to `apply`; the choices of a menu are in the order it lists them.
#pragma once

#include <string>
#include <vector>

#include "ScreenParts.hpp"
#include "app/stores/MonitorStore.hpp"

namespace brimlet {

enum class SettingsCommand {
    none,
    memoryPressureAlert,
    lowDiskAlert,
    lowDiskThreshold,
    heavyAppAlert,
    heavyAppThreshold,
    menuBarDisplay,
    ownIcon,  // the suite participant's choice, not the monitor store's
    floatingVisible,
    floatingTheme,
    floatingLook,
    dockBadges,
    dockMemoryThreshold,
    dockCpuThreshold,
    launchAtLogin,  // the system's login item, not the monitor store's
};

using SettingsControl = screens::Control<SettingsCommand>;

// What the system says about launching at login; the switch shows this, not what was asked.
enum class LoginItemState { enabled, disabled, requiresApproval, unavailable };

struct SettingsRow {
    enum class Kind { checkbox, choice, note };
    Kind kind = Kind::note;
    std::string caption;      // the label in front of the control; empty: none
    SettingsControl control;  // title (checkbox), spoken label, enabled, action
    bool on = false;          // a checkbox's state
    std::vector<std::string> choices;
    int selected = -1;  // the choice in effect
    std::string text;   // a note's words
    screens::Tone tone = screens::Tone::secondary;
    bool operator==(const SettingsRow&) const = default;
};

struct SettingsSection {
    std::string heading;
    std::vector<SettingsRow> rows;
    bool operator==(const SettingsSection&) const = default;
};

struct SettingsScreen {
    std::string title;
    std::vector<SettingsSection> sections;
};

// What the screen reads besides the monitor store.
struct SettingsContext {
    bool ownIconWanted = false;
    LoginItemState login = LoginItemState::unavailable;
    std::string loginFailure;  // the system's description of a refused change; empty: none
};

namespace SettingsPresenter {

SettingsScreen screen(const MonitorStore& store, const SettingsContext& context);

// A checkbox changed (`on`) or a menu's choice `index` was picked, for a control of `screen(store…)`
// as the store is now. Changes the monitor store and returns true; returns false for the two
// commands the front end carries out itself (the own icon and the login item) and for an index
// that is not one of the choices.
bool apply(MonitorStore& store, SettingsCommand command, bool on, int index);

}  // namespace SettingsPresenter

}  // namespace brimlet
