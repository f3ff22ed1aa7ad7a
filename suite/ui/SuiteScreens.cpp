#include "SuiteScreens.hpp"

#include "GlobalHotKey.hpp"

namespace kestrow::suite::SuiteScreens {

SuiteMemberRow member(const SuiteRow& row, const NumberLocale& locale) {
    SuiteMemberRow made;
    made.line = SuiteFormat::rowLine(row, locale);
    made.help = row.app().displayName();
    if (const GlanceRecord* record = row.record()) {
        for (const GlanceMetric& metric : record->metrics) {
            SuiteValueLine value;
            value.label = metric.label;
            value.value = SuiteFormat::text(metric, locale);
            value.level = metric.level;
            value.accessibilityLabel = metric.label.empty() ? value.value : metric.label + " " + value.value;
            made.values.push_back(std::move(value));
        }
    }
    return made;
}

SuitePopoverScreen popover(const std::vector<SuiteRow>& rows, bool floatingVisible, bool hotKeyRegistered,
                           const NumberLocale& locale) {
    SuitePopoverScreen screen;
    screen.title = SuiteFormat::itemLabel;
    screen.membersLabel = membersLabel;
    for (const SuiteRow& row : rows) screen.members.push_back(member(row, locale));
    screen.floatingBar.title = SuiteFormat::showBarTitle;
    screen.floatingBar.accessibilityLabel = SuiteFormat::showBarLabel(hotKeyRegistered);
    screen.floatingBar.action = SuiteCommand::toggleFloatingBar;
    screen.floatingBar.on = floatingVisible;
    if (hotKeyRegistered) screen.shortcut = GlobalHotKey::displayName;
    return screen;
}

SuiteBarScreen bar(const std::vector<SuiteRow>& rows, bool expanded, const NumberLocale& locale) {
    SuiteBarScreen screen;
    screen.accessibilityLabel = SuiteFormat::itemLabel;
    for (const SuiteRow& row : rows) screen.members.push_back(member(row, locale));
    screen.expanded = expanded;
    if (expanded)
        screen.expand = {std::string(SuiteFormat::collapseBarLabel), "chevron.up",
                         std::string(SuiteFormat::collapseBarLabel), SuiteCommand::collapseFloatingBar, false};
    else
        screen.expand = {std::string(SuiteFormat::expandBarLabel), "chevron.down",
                         std::string(SuiteFormat::expandBarLabel), SuiteCommand::expandFloatingBar, false};
    screen.hide = {std::string(SuiteFormat::hideBarLabel), "xmark", std::string(SuiteFormat::hideBarLabel),
                   SuiteCommand::hideFloatingBar, false};
    return screen;
}

}  // namespace kestrow::suite::SuiteScreens
