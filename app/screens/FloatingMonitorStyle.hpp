// How the monitor's own floating panel looks and where it stays. The look chosen in the settings
// becomes a background and an opacity; the panel's top-left corner is kept by the floating monitor
// itself under its own key, apart from the store's settings and from the suite's floating bar.
#pragma once

#include <optional>
#include <string_view>

#include "app/stores/MonitorSettings.hpp"
#include "base/UserDefaults.hpp"
#include "suite/ui/FloatingLayout.hpp"

namespace brimlet {

namespace FloatingMonitorStyle {
// The opacity while the pointer is elsewhere: the fading looks step back so the work beneath
// shows through; under the pointer every look is fully opaque.
double idleAlpha(FloatingLook look);
// Glass and the fading looks sit on the system's translucent material; solid on the window
// background color.
inline bool usesMaterial(FloatingLook look) { return look != FloatingLook::solid; }
}  // namespace FloatingMonitorStyle

// The top-left corner of the floating monitor, stored as {"x": …, "y": …} in screen points. A run
// that must not change the user's settings (`persists` false) keeps the corner for itself only.
class FloatingMonitorPlace {
public:
    static constexpr std::string_view key = "floating.topLeft";

    FloatingMonitorPlace(kestrow::UserDefaults& defaults, bool persists) : defaults_(defaults), persists_(persists) {}

    // The corner moved to during this run, else the stored one; none when nothing readable is stored.
    std::optional<kestrow::suite::Point> topLeft() const;
    void moved(kestrow::suite::Point topLeft);

private:
    kestrow::UserDefaults& defaults_;
    bool persists_;
    std::optional<kestrow::suite::Point> moved_;
};

}  // namespace brimlet
