#include "SuiteHost.hpp"

#include "SuiteParticipant.hpp"

namespace kestrow::suite {

SuiteHost::SuiteHost(SuiteParticipant& participant, const SuiteStatusItemFactory& factory, bool registerHotKey)
    : participant_(participant),
      factory_(factory) {
    if (factory_.make) item_ = factory_.make(*this);
    if (registerHotKey && factory_.hotKeys) {
        hotKey_ = std::make_unique<GlobalHotKey>(*factory_.hotKeys, GlobalHotKey::keyCodeM, GlobalHotKey::controlOption,
                                                 [this] { toggleFloating(); });
        if (!hotKey_->isRegistered())
            participant_.logOnce("hotkey", "the suite shortcut " + std::string(GlobalHotKey::displayName) +
                                               " could not be registered: this app still holds the same keys "
                                               "(a duplicate in one process)");
    }
    applyFloating();
}

std::optional<double> SuiteHost::preferredPosition() const {
    if (factory_.preferredPosition) return factory_.preferredPosition();
    return participant_.settings().statusItemPosition;
}

void SuiteHost::update() {
    if (tornDown_) return;
    if (item_) item_->update(participant_.menuBarValues(), participant_.worstLevel());
    if (panel_) panel_->update();
}

void SuiteHost::reviveStatusItem() {
    if (tornDown_ || !factory_.make || (item_ && item_->isVisible())) return;
    if (item_) item_->withdraw();
    item_ = factory_.make(*this);
    if (item_) item_->update(participant_.menuBarValues(), participant_.worstLevel());
}

void SuiteHost::tearDown() {
    if (tornDown_) return;
    tornDown_ = true;
    if (item_) item_->withdraw();
    item_.reset();
    if (panel_) panel_->tearDown();
    panel_.reset();
    if (hotKey_) hotKey_->invalidate();
    hotKey_.reset();
}

bool SuiteHost::floatingVisible() const { return participant_.settings().floatingVisible; }

void SuiteHost::setFloatingVisible(bool visible) {
    if (tornDown_) return;
    participant_.setFloatingVisible(visible);
    applyFloating();
}

bool SuiteHost::floatingExpanded() const { return participant_.settings().floatingExpanded; }

void SuiteHost::setFloatingExpanded(bool expanded) {
    if (tornDown_) return;
    participant_.setFloatingExpanded(expanded);
    if (panel_) panel_->setExpanded(expanded);
}

void SuiteHost::applyFloating() {
    if (tornDown_ || !factory_.makeFloatingPanel) return;
    if (floatingVisible()) {
        if (!panel_) panel_ = factory_.makeFloatingPanel(*this);
        if (panel_) {
            panel_->setExpanded(participant_.settings().floatingExpanded);
            panel_->show();
        }
    } else if (panel_) {
        panel_->hide();
    }
}

}  // namespace kestrow::suite
