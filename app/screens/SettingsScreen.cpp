#include "SettingsScreen.hpp"

#include <functional>
#include <optional>

#include "app/screens/MonitorReadout.hpp"
#include "app/screens/SettingsChoices.hpp"

namespace brimlet::SettingsPresenter {

namespace C = SettingsChoices;

namespace {

SettingsRow checkbox(std::string caption, std::string_view title, SettingsCommand action, bool on,
                     bool enabled = true) {
    SettingsRow row;
    row.kind = SettingsRow::Kind::checkbox;
    row.caption = std::move(caption);
    row.control.title = std::string(title);
    row.control.action = action;
    row.control.enabled = enabled;
    row.on = on;
    return row;
}

template <typename E>
SettingsRow enumChoice(std::string caption, std::string_view spoken, SettingsCommand action, E current) {
    SettingsRow row;
    row.kind = SettingsRow::Kind::choice;
    row.caption = std::move(caption);
    row.control.accessibilityLabel = std::string(spoken);
    row.control.action = action;
    const auto& cases = E::allCases();
    for (std::size_t i = 0; i < cases.size(); ++i) {
        row.choices.emplace_back(C::title(cases[i]));
        if (cases[i] == current) row.selected = static_cast<int>(i);
    }
    return row;
}

template <typename T>
SettingsRow thresholdChoice(std::string caption, std::string_view spoken, SettingsCommand action,
                            const std::vector<SettingChoice<T>>& choices, T current, bool enabled) {
    SettingsRow row;
    row.kind = SettingsRow::Kind::choice;
    row.caption = std::move(caption);
    row.control.accessibilityLabel = std::string(spoken);
    row.control.action = action;
    row.control.enabled = enabled;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        row.choices.push_back(choices[i].title);
        if (choices[i].value == current) row.selected = static_cast<int>(i);
    }
    return row;
}

SettingsRow note(std::string_view text, screens::Tone tone = screens::Tone::secondary) {
    SettingsRow row;
    row.text = std::string(text);
    row.tone = tone;
    return row;
}

template <typename E>
bool pickCase(int index, const std::function<void(E)>& set) {
    const auto& cases = E::allCases();
    if (index < 0 || static_cast<std::size_t>(index) >= cases.size()) return false;
    set(cases[static_cast<std::size_t>(index)]);
    return true;
}

template <typename T>
std::optional<T> pickValue(const std::vector<SettingChoice<T>>& choices, int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= choices.size()) return std::nullopt;
    return choices[static_cast<std::size_t>(index)].value;
}

}  // namespace

SettingsScreen screen(const MonitorStore& store, const SettingsContext& context) {
    SettingsScreen s;
    s.title = MonitorReadout::settingsTitle;
    const AlertSettings alerts = store.alertSettings();
    const DockBadgeSettings badges = store.dockBadgeSettings();
    const DockBadgeMode dock = store.dockBadges();

    SettingsSection alertSection{"Alerts", {}};
    alertSection.rows = {
        checkbox("Notify me when:", "Memory pressure stays critical", SettingsCommand::memoryPressureAlert,
                 alerts.memoryPressureEnabled),
        checkbox("", "Disk space is low", SettingsCommand::lowDiskAlert, alerts.lowDiskEnabled),
        thresholdChoice("", "Low disk alert threshold", SettingsCommand::lowDiskThreshold,
                        C::lowDiskThresholds(alerts.lowDiskThreshold), alerts.lowDiskThreshold, alerts.lowDiskEnabled),
        checkbox("", "An app uses a lot of memory", SettingsCommand::heavyAppAlert, alerts.heavyAppEnabled),
        thresholdChoice("", "Heavy app alert threshold", SettingsCommand::heavyAppThreshold,
                        C::heavyAppThresholds(alerts.heavyAppThreshold), alerts.heavyAppThreshold,
                        alerts.heavyAppEnabled),
        note(C::alertsNote),
    };

    SettingsSection menuBar{"Menu Bar", {}};
    menuBar.rows = {
        enumChoice("Menu bar shows:", "Menu bar shows", SettingsCommand::menuBarDisplay, store.menuBarDisplay()),
        checkbox("", C::ownIconTitle, SettingsCommand::ownIcon, context.ownIconWanted),
        note(C::ownIconExplanation),
    };

    SettingsSection floating{"Floating Monitor", {}};
    floating.rows = {
        checkbox("Floating monitor:", "Show the floating monitor", SettingsCommand::floatingVisible,
                 store.floatingVisible()),
        note(C::floatingShortcutNote),
        enumChoice("Theme:", "Floating monitor theme", SettingsCommand::floatingTheme, store.floatingTheme()),
        enumChoice("Look:", "Floating monitor look", SettingsCommand::floatingLook, store.floatingLook()),
    };

    SettingsSection dockSection{"Dock", {}};
    dockSection.rows = {
        enumChoice(std::string(C::dockBadgesTitle) + ":", C::dockBadgesTitle, SettingsCommand::dockBadges, dock),
        thresholdChoice("Memory badge from:", "Memory badge threshold", SettingsCommand::dockMemoryThreshold,
                        C::dockMemoryThresholds(badges.memoryThreshold), badges.memoryThreshold,
                        dock == DockBadgeMode::memory),
        thresholdChoice("CPU badge from:", "CPU badge threshold", SettingsCommand::dockCpuThreshold,
                        C::dockCpuThresholds(badges.cpuThreshold), badges.cpuThreshold, dock == DockBadgeMode::cpu),
        note(C::dockAccessibilityNote),
    };

    SettingsSection startup{"Startup", {}};
    const LoginItemState login = context.login;
    startup.rows = {checkbox("Login:", C::launchAtLoginTitle, SettingsCommand::launchAtLogin,
                             login == LoginItemState::enabled || login == LoginItemState::requiresApproval,
                             login != LoginItemState::unavailable)};
    // A refusal is told until the next change; the approval the system waits for, while it waits.
    if (!context.loginFailure.empty())
        startup.rows.push_back(note(C::loginItemFailure(context.loginFailure), screens::Tone::failure));
    else if (login == LoginItemState::requiresApproval) startup.rows.push_back(note(C::loginItemApprovalNote));

    s.sections = {alertSection, menuBar, floating, dockSection, startup};
    return s;
}

bool apply(MonitorStore& store, SettingsCommand command, bool on, int index) {
    AlertSettings alerts = store.alertSettings();
    DockBadgeSettings badges = store.dockBadgeSettings();
    switch (command) {
    case SettingsCommand::memoryPressureAlert: alerts.memoryPressureEnabled = on; break;
    case SettingsCommand::lowDiskAlert: alerts.lowDiskEnabled = on; break;
    case SettingsCommand::heavyAppAlert: alerts.heavyAppEnabled = on; break;
    case SettingsCommand::lowDiskThreshold: {
        const auto value = pickValue(C::lowDiskThresholds(alerts.lowDiskThreshold), index);
        if (!value) return false;
        alerts.lowDiskThreshold = *value;
        break;
    }
    case SettingsCommand::heavyAppThreshold: {
        const auto value = pickValue(C::heavyAppThresholds(alerts.heavyAppThreshold), index);
        if (!value) return false;
        alerts.heavyAppThreshold = *value;
        break;
    }
    case SettingsCommand::menuBarDisplay:
        return pickCase<MenuBarDisplay>(index, [&](MenuBarDisplay value) { store.setMenuBarDisplay(value); });
    case SettingsCommand::floatingVisible: store.setFloatingVisible(on); return true;
    case SettingsCommand::floatingTheme:
        return pickCase<FloatingTheme>(index, [&](FloatingTheme value) { store.setFloatingTheme(value); });
    case SettingsCommand::floatingLook:
        return pickCase<FloatingLook>(index, [&](FloatingLook value) { store.setFloatingLook(value); });
    case SettingsCommand::dockBadges:
        return pickCase<DockBadgeMode>(index, [&](DockBadgeMode value) { store.setDockBadges(value); });
    case SettingsCommand::dockMemoryThreshold: {
        const auto value = pickValue(C::dockMemoryThresholds(badges.memoryThreshold), index);
        if (!value) return false;
        badges.memoryThreshold = *value;
        store.setDockBadgeSettings(badges);
        return true;
    }
    case SettingsCommand::dockCpuThreshold: {
        const auto value = pickValue(C::dockCpuThresholds(badges.cpuThreshold), index);
        if (!value) return false;
        badges.cpuThreshold = *value;
        store.setDockBadgeSettings(badges);
        return true;
    }
    case SettingsCommand::ownIcon:
    case SettingsCommand::launchAtLogin:
    case SettingsCommand::none: return false;
    }
    store.setAlertSettings(alerts);
    return true;
}

}  // namespace brimlet::SettingsPresenter
