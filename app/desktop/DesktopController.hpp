// Wires the monitor's own desktop pieces to the suite: the floating monitor steps aside while the
// suite is active (its shared floating bar takes the place), this application's Control-Option-M
// shortcut exists exactly while the suite is inactive (the host owns it otherwise), and every new
// glance of the monitor is published as this application's suite readout.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "app/stores/MonitorStore.hpp"
#include "base/MainLoop.hpp"
#include "base/WeakGuard.hpp"
#include "core/monitoring/SuiteGlance.hpp"
#include "suite/protocol/GlanceRecord.hpp"
#include "suite/ui/GlobalHotKey.hpp"
#include "suite/ui/SuiteParticipant.hpp"

namespace brimlet {

// The application's own floating monitor (a panel on macOS, none on headless Linux).
class FloatingMonitorController {
public:
    virtual ~FloatingMonitorController() = default;
    // Shows, hides or restyles the monitor after the store's settings or the suppression changed.
    virtual void sync() = 0;
    // While suppressed it stays hidden whatever the store says.
    virtual void setSuppressed(bool suppressed) = 0;
    virtual bool isSuppressed() const = 0;
};

// The badges over other applications' Dock icons.
class DockBadgeController {
public:
    virtual ~DockBadgeController() = default;
    // Lays the badges out again from the store's latest snapshot and settings.
    virtual void refresh() = 0;
};

// Where the platform has no floating monitor: it only remembers the suppression.
class NoFloatingMonitor final : public FloatingMonitorController {
public:
    void sync() override {}
    void setSuppressed(bool suppressed) override { suppressed_ = suppressed; }
    bool isSuppressed() const override { return suppressed_; }

private:
    bool suppressed_ = false;
};

// Where the platform has no Dock.
class NoDockBadges final : public DockBadgeController {
public:
    void refresh() override {}
};

// What the controller needs of the suite participant.
class SuiteLink {
public:
    virtual ~SuiteLink() = default;
    virtual bool isActive() const = 0;
    virtual bool showsOwnIcon() const = 0;
    virtual void publish(kestrow::suite::GlanceLevel level, std::vector<kestrow::suite::GlanceMetric> metrics,
                         std::int64_t ttl) = 0;
    // Called after anything the participant reports changed.
    virtual kestrow::MainLoop::Token observe(std::function<void()> onChange) = 0;
    // Whether this process hosts the suite (and so holds the suite's shortcut).
    virtual bool hostsHere() const = 0;
    // Called at once, within the participant's evaluation, on every change it reports: the one
    // shortcut changes hands there, before the host that takes it is made and after the host that
    // held it is gone. Empty: none.
    virtual void onChangeNow(std::function<void()> handler) = 0;
};

// The real participant behind the link. It takes the participant's one change callback and passes
// the changes on to every subscriber, once per turn of the loop: one evaluation of the suite often
// changes several properties together, and they are applied together.
class ParticipantLink final : public SuiteLink {
public:
    ParticipantLink(kestrow::suite::SuiteParticipant& participant, kestrow::MainLoop& loop);
    ~ParticipantLink() override;

    bool isActive() const override { return participant_.isActive(); }
    bool showsOwnIcon() const override { return participant_.showsOwnIcon(); }
    void publish(kestrow::suite::GlanceLevel level, std::vector<kestrow::suite::GlanceMetric> metrics,
                 std::int64_t ttl) override {
        participant_.publish(level, std::move(metrics), ttl);
    }
    kestrow::MainLoop::Token observe(std::function<void()> onChange) override {
        return observers_.subscribe(std::move(onChange));
    }
    bool hostsHere() const override { return participant_.isHost(); }
    void onChangeNow(std::function<void()> handler) override { now_ = std::move(handler); }

private:
    kestrow::suite::SuiteParticipant& participant_;
    std::function<void()> now_;
    kestrow::MainLoop& loop_;
    Observers observers_;
    bool notifyPending_ = false;
    kestrow::WeakGuard guard_;
};

class DesktopController {
public:
    static constexpr std::int64_t glanceTTL = 10;

    // `hotKeys` null: the platform has no global shortcuts.
    DesktopController(kestrow::MainLoop& loop, MonitorStore& monitor, SuiteLink& suite,
                      std::unique_ptr<FloatingMonitorController> floating, std::unique_ptr<DockBadgeController> dock,
                      kestrow::suite::HotKeyCenter* hotKeys);
    ~DesktopController();
    DesktopController(const DesktopController&) = delete;
    DesktopController& operator=(const DesktopController&) = delete;

    void applySuite(bool sync);
    void handOverHotKey();
    const kestrow::suite::GlobalHotKey* hotKey() const { return hotKey_.get(); }
    FloatingMonitorController& floating() { return *floating_; }
    DockBadgeController& dock() { return *dock_; }

    // The monitor's readout as the suite's record carries it.
    static kestrow::suite::GlanceLevel recordLevel(SuiteGlance::Level level);
    static std::vector<kestrow::suite::GlanceMetric> recordMetrics(const SuiteGlance& glance);

private:
    void publish(const SystemGlance& glance);
    void syncDesktop();

    kestrow::MainLoop& loop_;
    MonitorStore& monitor_;
    SuiteLink& suite_;
    std::unique_ptr<FloatingMonitorController> floating_;
    std::unique_ptr<DockBadgeController> dock_;
    kestrow::suite::HotKeyCenter* hotKeys_;
    std::unique_ptr<kestrow::suite::GlobalHotKey> hotKey_;
    kestrow::MainLoop::Token suiteObservation_;
    kestrow::WeakGuard guard_;
};

}  // namespace brimlet
