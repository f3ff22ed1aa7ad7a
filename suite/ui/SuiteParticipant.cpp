#include "SuiteParticipant.hpp"

#include <algorithm>

#include "base/Files.hpp"
#include "base/Log.hpp"

namespace kestrow::suite {

namespace {

constexpr std::int64_t defaultTTL = 10;

// "4.5", "5": one decimal at most, in the log's fixed notation.
std::string seconds(double value) {
    std::string text = SuiteFormat::number(value, NumberLocale{".", "", 0});
    if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) text.resize(text.size() - 2);
    return text;
}

}  // namespace

double SuiteParticipant::timerInterval(std::int64_t ttl) {
    const double t = static_cast<double>(std::clamp(ttl, GlanceRecord::ttlMin, GlanceRecord::ttlMax));
    return std::min(t * 0.5 - 0.5, 5.0);
}

SuiteParticipant::SuiteParticipant(SuiteApp app, std::vector<SuiteFolder> folders, UserDefaults& defaults,
                                   SuiteStatusItemFactory statusItems, MainLoop& loop, Options options)
    : app_(app), defaults_(defaults), statusItems_(std::move(statusItems)), loop_(loop),
      options_(std::move(options)) {
    clock_ = options_.clock ? options_.clock : std::function<double()>([&loop] { return loop.wallClock(); });

    for (SuiteFolder& folder : folders) {
        if (const Status prepared = folder.prepare(); prepared.failed()) {
            log::kit::error(logCategory, "suite folder not usable: " + folder.url);
            continue;
        }
        if (std::find(folders_.begin(), folders_.end(), folder) == folders_.end()) folders_.push_back(folder);
    }
    if (!folders_.empty()) settings_ = SuiteSettings::read(folders_.front());

    for (const SuiteFolder& folder : folders_) {
        // Our own record and its temporary files change with every write we make; what we wrote
        // is known already (and kept in records_), so only the others' changes need a reading.
        const std::string ownFile = app_.glanceFileName();
        MainLoop::Watch watch = loop_.watchFolder(
            folder.glancesURL(),
            [this] {
                recordsCurrent_ = false;
                evaluate();
            },
            [ownFile](std::string_view name) { return name == ownFile || isAtomicWriteTemporary(name, ownFile); });
        if (watch.status.failed())
            logOnce("watch:" + folder.url, "suite folder not watched: " + watch.status.message());
        else
            watchers_.push_back(std::move(watch.token));
    }

    if (app_.canHost() && !folders_.empty()) {
        std::vector<std::string> lockURLs;
        for (const SuiteFolder& folder : folders_) lockURLs.push_back(folder.lockURL());
        lock_ = std::make_unique<HostLock>(lockURLs);
        // Called on the lock's own thread, possibly while shutdown runs: the hop is made under the
        // hop's mutex, which shutdown closes, so nothing is posted to a loop that may be gone.
        lockHop_ = std::make_shared<LockHop>();
        lockHop_->loop = &loop_;
        // Winning and losing the lock (its file replaced under us) both lead to a fresh evaluation,
        // which reads isHeld() and sets up or tears down hosting accordingly.
        auto reevaluate = [hop = lockHop_, alive = std::weak_ptr<bool>(alive_), this] {
            std::lock_guard guard(hop->mutex);
            if (!hop->loop) return;
            hop->loop->post([alive, this] {
                if (alive.lock()) evaluate();
            });
        };
        lock_->start(reevaluate, reevaluate);
    }

    openObserver_ = SuiteOpenObserver::make(app_, [this] {
        if (options_.onOpen) options_.onOpen();
    });
    if (options_.observeSystem) wakeObserver_ = loop_.onWake([this] { didWake(); });

    startTimer(defaultTTL);
    evaluate();
}

SuiteParticipant::~SuiteParticipant() {
    shutdown();
    alive_.reset();
}

void SuiteParticipant::logOnce(const std::string& key, const std::string& message) {
    if (!loggedProblems_.insert(key).second) return;
    log::kit::error(logCategory, message);
}

void SuiteParticipant::report(Property property) {
    if (observer_) observer_(property);
}

GlanceRecord SuiteParticipant::currentRecord(double now, GlanceState state) const {
    return GlanceRecord(app_, state == GlanceState::running && isHost_, state, now, lastTTL_,
                        lastLevel_.value_or(GlanceLevel::ok), lastMetrics_);
}

void SuiteParticipant::startTimer(std::int64_t ttl) {
    timerTTL_ = ttl;
    const double interval = timerInterval(ttl);
    timer_ = loop_.repeat(interval, interval / 10, [this] { tick(); });
}

void SuiteParticipant::tick() {
    if (didShutdown_) return;
    realignStatusItem();
    writeIfDue(timerInterval(timerTTL_) * 1.1);
    evaluate();
}

void SuiteParticipant::publish(GlanceLevel level, std::vector<GlanceMetric> metrics, std::int64_t ttl) {
    if (didShutdown_ || publishingSuspended_) return;
    const GlanceRecord candidate(app_, isHost_, GlanceState::running, clock_(), ttl, level, metrics);
    if (const kestrow::Status problem = GlanceCodec::problem(candidate); problem.failed()) {
        logOnce("invalid:" + problem.message(), "glance record not written: " + problem.message());
        return;
    }
    lastLevel_ = level;
    lastMetrics_ = std::move(metrics);
    lastTTL_ = ttl;
    checkStaleness(ttl);
    if (ttl != timerTTL_) startTimer(ttl);
    evaluate();
    writeIfDue(0);
}

void SuiteParticipant::checkStaleness(std::int64_t ttl) {
    if (!options_.staleAfter) return;
    const double gap = longestWriteGap(ttl);
    if (gap <= *options_.staleAfter) return;
    logOnce("expired", "the interval between two publishes (" + seconds(gap) + " s) is longer than staleAfter (" +
                           seconds(*options_.staleAfter) + " s): the numbers blink");
}

void SuiteParticipant::writeIfDue(double margin) {
    if (didShutdown_ || publishingSuspended_ || !lastLevel_) return;
    const double now = clock_();
    const GlanceRecord record = currentRecord(now, GlanceState::running);
    if (!schedule_.isDue(record, now + margin)) return;
    bool allWritten = true;
    for (const SuiteFolder& folder : folders_) {
        const Status written = GlanceStore{folder}.write(record);
        if (written.failed()) {
            allWritten = false;
            logOnce("write:" + written.message(), "glance record not written: " + written.message());
        }
    }
    // Our own record is now what we wrote, without reading it back.
    if (allWritten) records_[app_] = record;
    else recordsCurrent_ = false;
    // A folder that refused stays due, so the next tick tries again.
    if (allWritten) schedule_.didWrite(record);
    lastWriteFailed_ = !allWritten;
}

const std::map<SuiteApp, GlanceRecord>& SuiteParticipant::readRecords() {
    // Without a watch on every folder nothing says when a record changed: read each time.
    if (recordsCurrent_ && watchers_.size() == folders_.size()) return records_;
    std::map<SuiteApp, GlanceRecord> records;
    for (const SuiteFolder& folder : folders_) {
        for (const auto& [app, result] : GlanceStore{folder}.readAll()) {
            const GlanceRecord* record = result.record();
            if (!record) continue;
            // The same member seen in two folders: its latest word counts.
            auto [it, inserted] = records.emplace(app, *record);
            if (!inserted && record->at > it->second.at) it->second = *record;
        }
    }
    records_ = std::move(records);
    recordsCurrent_ = true;
    return records_;
}

void SuiteParticipant::evaluate() {
    if (didShutdown_) return;
    const double now = clock_();
    std::map<SuiteApp, GlanceRecord> records = readRecords();  // a copy: ours may be added below
    if (app_.participates() && !publishingSuspended_) {
        auto own = records.find(app_);
        // Count ourselves at once, before our first record is on disk (or while an old one is stale).
        if (own == records.end() || !own->second.isFresh(now))
            records[app_] = GlanceRecord(app_, isHost_, GlanceState::running, now, timerTTL_, GlanceLevel::ok, {});
    }
    machine_.update(records, now);

    const bool showedOwnIcon = showsOwnIcon();
    bool hostNeedsUpdate = false;
    if (machine_.isActive != isActive_) {
        isActive_ = machine_.isActive;
        report(Property::isActive);
    }
    if (std::vector<SuiteRow> rows = machine_.rows(); rows != rows_) {
        rows_ = std::move(rows);
        hostNeedsUpdate = true;
        report(Property::rows);
    }
    if (const GlanceLevel worst = machine_.worstLevel(); worst != worstLevel_) {
        worstLevel_ = worst;
        hostNeedsUpdate = true;
        report(Property::worstLevel);
    }
    ownIconByRules_ = machine_.showsOwnIcon(false);
    if (SuiteValues values = machine_.menuBarValues(settings_.menuBarValues); values != menuBarValues_) {
        menuBarValues_ = std::move(values);
        hostNeedsUpdate = true;
        report(Property::menuBarValues);
    }
    if (showsOwnIcon() != showedOwnIcon) report(Property::showsOwnIcon);

    reconcileHosting();
    if (host_ && hostNeedsUpdate) host_->update();
}

void SuiteParticipant::reconcileHosting() {
    const bool wanted = !didShutdown_ && !publishingSuspended_ && app_.canHost() && lock_ && lock_->isHeld() &&
                        machine_.isActive;
    if (wanted && !host_) {
        // Another member may have hosted meanwhile and moved things: start from what it saved.
        if (!folders_.empty()) settings_ = SuiteSettings::read(folders_.front());
        hostingRechecksLeft_ = hostingRechecks;
        host_ = std::make_unique<SuiteHost>(*this, statusItems_, options_.registerHotKey);
        setIsHost(true);
        host_->update();
        scheduleHostingRecheck();
        writeIfDue(0);  // the record's hosting flag tells the others at once
    } else if (!wanted && host_) {
        pendingRecheck_.cancel();
        hostingRechecksLeft_ = 0;
        std::unique_ptr<SuiteHost> host = std::move(host_);
        host->tearDown();
        setIsHost(false);
        writeIfDue(0);
    }
}

// In the first seconds of hosting the folder may still be settling (the old host's last record, a
// status bar that has not placed the item yet): look again once a second, a dozen times.
void SuiteParticipant::scheduleHostingRecheck() {
    if (hostingRechecksLeft_ <= 0) return;
    pendingRecheck_ = loop_.after(hostingRecheckInterval, [this] {
        if (didShutdown_ || !host_) return;
        --hostingRechecksLeft_;
        evaluate();
        if (host_) {
            host_->reviveStatusItem();
            scheduleHostingRecheck();
        }
    });
}

void SuiteParticipant::setIsHost(bool value) {
    if (isHost_ == value) return;
    isHost_ = value;
    report(Property::isHost);
}

void SuiteParticipant::realignStatusItem() {
    if (!host_ || !host_->statusItem()) return;
    const std::optional<double> saved = host_->statusItem()->savedPosition();
    if (!saved || saved == settings_.statusItemPosition) return;
    settings_.statusItemPosition = saved;
    saveSettings();
}

void SuiteParticipant::suspendPublishing() {
    if (publishingSuspended_) return;
    publishingSuspended_ = true;
    evaluate();
}

void SuiteParticipant::didWake() {
    if (didShutdown_) return;
    recordsCurrent_ = false;  // a sleeping machine may have missed what others wrote
    machine_.didWake(clock_());
    evaluate();
    realignStatusItem();
    writeIfDue(wakeWriteMargin);
}

bool SuiteParticipant::handleReopen() {
    if (!removedByUser_) return false;
    const bool showed = showsOwnIcon();
    removedByUser_ = false;
    if (showsOwnIcon() != showed) report(Property::showsOwnIcon);
    return true;
}

bool SuiteParticipant::showsOwnIcon() const {
    if (removedByUser_) return false;
    return ownIconWanted() || ownIconByRules_;
}

bool SuiteParticipant::ownIconWanted() const {
    return defaults_.boolean(std::string(showOwnIconKey)).value_or(false);
}

Status SuiteParticipant::setOwnIconWanted(bool wanted) {
    const bool showed = showsOwnIcon();
    Status status = defaults_.set(std::string(showOwnIconKey), JsonValue(wanted));
    // Asking for the icon is the user's explicit choice: it overrides an earlier drag out of the menu bar.
    if (wanted) removedByUser_ = false;
    if (showsOwnIcon() != showed) report(Property::showsOwnIcon);
    return status;
}

void SuiteParticipant::setShowsOwnIcon(bool shown) {
    const bool showed = showsOwnIcon();
    removedByUser_ = !shown;
    if (showsOwnIcon() != showed) report(Property::showsOwnIcon);
}

void SuiteParticipant::floatingBarMoved(Point topLeft) {
    const std::pair<double, double> corner{topLeft.x, topLeft.y};
    if (settings_.floatingTopLeft == corner) return;
    settings_.floatingTopLeft = corner;
    saveSettingsSoon();
}

void SuiteParticipant::setFloatingVisible(bool visible) {
    if (settings_.floatingVisible == visible) return;
    settings_.floatingVisible = visible;
    saveSettingsSoon();
}

void SuiteParticipant::setFloatingExpanded(bool expanded) {
    if (settings_.floatingExpanded == expanded) return;
    settings_.floatingExpanded = expanded;
    saveSettingsSoon();
}

// A dragged bar reports many corners a second; one write after it settles is enough.
void SuiteParticipant::saveSettingsSoon() {
    if (didShutdown_) return saveSettings();
    pendingSave_ = loop_.after(settingsSaveDelay, [this] { saveSettings(); });
}

void SuiteParticipant::saveSettings() {
    pendingSave_.cancel();
    for (const SuiteFolder& folder : folders_) {
        const Status saved = settings_.write(folder);
        if (saved.failed()) logOnce("settings:" + saved.message(), "suite settings not saved: " + saved.message());
    }
}

void SuiteParticipant::shutdown() {
    if (didShutdown_) return;
    didShutdown_ = true;
    timer_.cancel();
    watchers_.clear();
    wakeObserver_.cancel();
    openObserver_.reset();
    pendingRecheck_.cancel();
    if (host_) {
        std::unique_ptr<SuiteHost> host = std::move(host_);
        host->tearDown();
    }
    setIsHost(false);
    if (pendingSave_.active()) saveSettings();
    if (!publishingSuspended_) {
        // The last word: members drop a stopped record at once instead of waiting for it to expire.
        const GlanceRecord last = currentRecord(clock_(), GlanceState::stopped);
        for (const SuiteFolder& folder : folders_) {
            const Status written = GlanceStore{folder}.write(last);
            if (written.failed()) logOnce("write:" + written.message(), "glance record not written: " + written.message());
        }
    }
    if (lockHop_) {
        std::lock_guard guard(lockHop_->mutex);
        lockHop_->loop = nullptr;
    }
    if (lock_) lock_->release();
}

}  // namespace kestrow::suite
