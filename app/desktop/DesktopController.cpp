#include "app/desktop/DesktopController.hpp"

namespace brimlet {

using kestrow::suite::GlanceLevel;
using kestrow::suite::GlanceMetric;

ParticipantLink::ParticipantLink(kestrow::suite::SuiteParticipant& participant, kestrow::MainLoop& loop)
    : participant_(participant),
      loop_(loop) {
    participant_.onChange([this](kestrow::suite::SuiteParticipant::Property) {
        if (now_) now_();
        if (notifyPending_) return;
        notifyPending_ = true;
        loop_.post([alive = guard_.weak(), this] {
            if (!alive) return;
            notifyPending_ = false;
            observers_.notify();
        });
    });
}

ParticipantLink::~ParticipantLink() {
    guard_.invalidate();
    participant_.onChange(nullptr);
}

DesktopController::DesktopController(kestrow::MainLoop& loop, MonitorStore& monitor, SuiteLink& suite,
                                     std::unique_ptr<FloatingMonitorController> floating,
                                     std::unique_ptr<DockBadgeController> dock, kestrow::suite::HotKeyCenter* hotKeys)
    : loop_(loop),
      monitor_(monitor),
      suite_(suite),
      floating_(std::move(floating)),
      dock_(std::move(dock)),
      hotKeys_(hotKeys) {
    const auto alive = guard_.weak();
    monitor_.onDesktopChange = [alive, this] {
        if (alive) syncDesktop();
    };
    monitor_.onTick = [alive, this] {
        if (alive) dock_->refresh();
    };
    monitor_.onGlance = [alive, this](const SystemGlance& glance) {
        if (alive) publish(glance);
    };
    applySuite(false);
    suite_.onChangeNow([alive, this] {
        if (alive) handOverHotKey();
    });
    suiteObservation_ = suite_.observe([alive, this] {
        if (alive) applySuite(true);
    });
    loop_.post([alive, this] {
        if (alive) syncDesktop();
    });
}

DesktopController::~DesktopController() {
    guard_.invalidate();
    suite_.onChangeNow(nullptr);
    monitor_.onDesktopChange = nullptr;
    monitor_.onTick = nullptr;
    monitor_.onGlance = nullptr;
    if (hotKey_) hotKey_->invalidate();
}

void DesktopController::syncDesktop() {
    floating_->sync();
    dock_->refresh();
}

void DesktopController::applySuite(bool sync) {
    const bool active = suite_.isActive();
    // The participant reports every change of its own (rows, levels, hosting, once a second while
    // the suite is busy); only the suite turning on or off concerns the monitor's own surfaces.
    if (sync && floating_->isSuppressed() == active) return;
    floating_->setSuppressed(active);
    handOverHotKey();
    if (sync) syncDesktop();
}

void DesktopController::handOverHotKey() {
    using kestrow::suite::GlobalHotKey;
    // One shortcut, two owners in turn: the monitor's own while the suite is inactive, the suite
    // host's while it is active. The keys can be registered once per process, so ours go before a
    // host is made and come back only once this process hosts no more.
    if (suite_.isActive()) {
        if (hotKey_) {
            hotKey_->invalidate();
            hotKey_.reset();
        }
    } else if (!hotKey_ && hotKeys_ && !suite_.hostsHere()) {
        // Through the store's setter, so the choice is saved and the monitor follows.
        hotKey_ = std::make_unique<GlobalHotKey>(*hotKeys_, GlobalHotKey::keyCodeM, GlobalHotKey::controlOption,
                                                 [alive = guard_.weak(), this] {
                                                     if (alive)
                                                         monitor_.setFloatingVisible(!monitor_.floatingVisible());
                                                 });
    }
}

GlanceLevel DesktopController::recordLevel(SuiteGlance::Level level) {
    switch (level.value) {
    case SuiteGlance::Level::ok: return GlanceLevel::ok;
    case SuiteGlance::Level::notice: return GlanceLevel::notice;
    case SuiteGlance::Level::alert: return GlanceLevel::alert;
    }
    return GlanceLevel::ok;
}

std::vector<GlanceMetric> DesktopController::recordMetrics(const SuiteGlance& glance) {
    std::vector<GlanceMetric> metrics;
    metrics.reserve(glance.metrics.size());
    for (const SuiteGlance::Metric& metric : glance.metrics)
        metrics.push_back(GlanceMetric{metric.id, metric.label, metric.value, metric.unit, recordLevel(metric.level)});
    return metrics;
}

void DesktopController::publish(const SystemGlance& glance) {
    const SuiteGlance readout(glance);
    suite_.publish(recordLevel(readout.level), recordMetrics(readout), glanceTTL);
}

}  // namespace brimlet
