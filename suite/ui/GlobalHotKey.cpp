#include "GlobalHotKey.hpp"

namespace kestrow::suite {

HotKeyCenter::HotKeyCenter(HotKeySystem& system, MainLoop& loop) : system_(system), loop_(loop) {}

HotKeyCenter::~HotKeyCenter() {
    guard_.invalidate();
    if (handlerInstalled_) system_.removeHandler();
}

bool HotKeyCenter::handle(std::uint32_t eventSignature, std::uint32_t id) {
    if (eventSignature != signature || actions_.count(id) == 0) return false;
    // Run it later, outside the system's event dispatch; a shortcut invalidated meanwhile does nothing.
    loop_.post([alive = guard_.weak(), this, id] {
        if (!alive) return;
        auto it = actions_.find(id);
        if (it == actions_.end()) return;
        std::function<void()> action = it->second;
        action();
    });
    return true;
}

GlobalHotKey::GlobalHotKey(HotKeyCenter& center, std::uint32_t keyCode, std::uint32_t modifiers,
                           std::function<void()> action)
    : center_(&center),
      keyCode_(keyCode),
      modifiers_(modifiers),
      id_(center.nextId_++) {
    if (!center.handlerInstalled_)
        center.handlerInstalled_ = center.system_.installHandler(
            [&center](std::uint32_t signature, std::uint32_t id) { return center.handle(signature, id); });
    ++center.holders_;
    holdsHandler_ = true;
    center.actions_[id_] = std::move(action);
    registration_ = center.system_.registerHotKey(keyCode, modifiers, HotKeyCenter::signature, id_);
    if (!registration_) center.actions_.erase(id_);  // nothing can fire it
}

void GlobalHotKey::invalidate() {
    if (registration_) {
        center_->system_.unregisterHotKey(*registration_);
        registration_.reset();
    }
    center_->actions_.erase(id_);
    if (holdsHandler_) {
        holdsHandler_ = false;
        if (--center_->holders_ == 0 && center_->handlerInstalled_) {
            center_->system_.removeHandler();
            center_->handlerInstalled_ = false;
        }
    }
}

}  // namespace kestrow::suite
