#include "app/screens/FloatingMonitorStyle.hpp"

#include <cmath>

#include "base/Log.hpp"

namespace brimlet {

double FloatingMonitorStyle::idleAlpha(FloatingLook look) {
    switch (look.value) {
    case FloatingLook::glass:
    case FloatingLook::solid: return 1.0;
    case FloatingLook::subtle: return 0.7;
    case FloatingLook::faint: return 0.35;
    }
    return 1.0;
}

namespace {

std::optional<double> finiteNumber(const kestrow::JsonValue& object, std::string_view name) {
    const kestrow::JsonValue* value = object.find(name);
    const kestrow::JsonNumber* number = value ? value->asNumber() : nullptr;
    if (!number || !std::isfinite(number->asDouble())) return std::nullopt;
    return number->asDouble();
}

}  // namespace

std::optional<kestrow::suite::Point> FloatingMonitorPlace::topLeft() const {
    if (moved_) return moved_;
    const auto stored = defaults_.value(std::string(key));
    if (!stored || !stored->asObject()) return std::nullopt;
    const auto x = finiteNumber(*stored, "x");
    const auto y = finiteNumber(*stored, "y");
    if (!x || !y) return std::nullopt;
    return kestrow::suite::Point{*x, *y};
}

void FloatingMonitorPlace::moved(kestrow::suite::Point topLeft) {
    moved_ = topLeft;
    if (!persists_) return;
    kestrow::JsonObject object;
    object["x"] = kestrow::JsonValue(topLeft.x);
    object["y"] = kestrow::JsonValue(topLeft.y);
    if (const kestrow::Status status = defaults_.set(std::string(key), kestrow::JsonValue(std::move(object)));
        !status.ok())
        kestrow::log::error("monitor", "floating monitor position not saved: " + status.message());
}

}  // namespace brimlet
