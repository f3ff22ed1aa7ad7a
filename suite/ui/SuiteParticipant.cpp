#include "SuiteParticipant.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <utility>

#include "base/Files.hpp"
#include "base/Log.hpp"

namespace kestrow::suite {

namespace {

constexpr std::int64_t defaultTTL = 10;

// "4.5", "5": one decimal at most, in the log's fixed notation.
std::string seconds(Seconds length) {
    std::string text = SuiteFormat::number(length.count(), NumberLocale{".", "", 0});
    if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) text.resize(text.size() - 2);
    return text;
}

}  // namespace

Seconds SuiteParticipant::timerInterval(std::int64_t ttl) {
    const double t = static_cast<double>(std::clamp(ttl, GlanceRecord::ttlMin, GlanceRecord::ttlMax));
    return Seconds(std::min(t * 0.5 - 0.5, 5.0));
}

SuiteParticipant::SuiteParticipant(SuiteApp app, std::vector<SuiteFolder> folders, UserDefaults& defaults,
                                   SuiteStatusItemFactory statusItems, MainLoop& loop, Options options)
    : app_(app),
      defaults_(defaults),
      statusItems_(std::move(statusItems)),
      loop_(loop),
      options_(std::move(options)) {
    clock_ = options_.clock ? options_.clock : std::function<WallTime()>([&loop] { return loop.wallClock(); });

    for (SuiteFolder& folder : folders) {
        if (std::find(folders_.begin(), folders_.end(), folder) != folders_.end()) continue;
        auto opened = OpenSuiteFolder::prepare(folder);
        if (opened.failed()) {
            log::kit::error(logCategory, "suite folder not usable: " + folder.url);
            log::kit::info(logCategory, opened.status().message());
            continue;
        }
        opened->removeStaleTemporaryFiles();
        folders_.push_back(folder);
        links_.push_back(FolderLink{folder, std::move(opened).value(), {}, {}});
    }
    reloadSettings();
    for (std::size_t i = 0; i < links_.size(); ++i) armWatches(i);

    if (app_.canHost() && !links_.empty()) {
        // Called on the lock's own thread, possibly while shutdown runs: the hop is made under the
        // hop's mutex, which shutdown closes, so nothing is posted to a loop that may be gone.
        lockHop_ = std::make_shared<LockHop>();
        lockHop_->loop = &loop_;
        startLock();
    }

    openObserver_ = SuiteOpenObserver::make(app_, [this] {
        if (options_.onOpen) options_.onOpen();
    });
    if (options_.observeSystem) wakeObserver_ = loop_.onWake([this] { didWake(); });

    startTimer(defaultTTL);
    evaluate();
}

bool SuiteParticipant::foldersReady() const {
    return std::all_of(links_.begin(), links_.end(), [](const FolderLink& link) { return link.open.has_value(); });
}

bool SuiteParticipant::watchedEverywhere() const {
    return std::all_of(links_.begin(), links_.end(), [](const FolderLink& link) {
        return link.open && link.glancesWatch.active() && link.folderWatch.active();
    });
}

void SuiteParticipant::armWatches(std::size_t index) {
    armRecordWatch(index);
    FolderLink& link = links_[index];
    const std::string url = link.folder.url;
    // In the folder itself only three names matter: the lock file (replaced under a holder, two
    // members could host), the shared settings and "glances" (swapped for another folder).
    MainLoop::Watch entries = loop_.watchFolder(
        url, [this] { suiteFolderChanged(); },
        [](std::string_view name) { return name != "host.lock" && name != "settings.json" && name != "glances"; },
        [this, index] { loseFolder(index, "deleted or moved away"); });
    if (entries.status.failed()) logOnce("watch:" + url, "suite folder not watched: " + entries.status.message());
    link.folderWatch = std::move(entries.token);
}

void SuiteParticipant::armRecordWatch(std::size_t index) {
    FolderLink& link = links_[index];
    // Our own record and its temporary files change with every write we make; what we wrote is
    // known already (and kept in records_), so only the others' changes need a reading.
    const std::string ownFile = app_.glanceFileName();
    MainLoop::Watch records = loop_.watchFolder(
        link.folder.glancesURL(), [this] { recordsChanged(); },
        [ownFile](std::string_view name) { return name == ownFile || isAtomicWriteTemporary(name, ownFile); },
        [this, index] { loseFolder(index, "deleted or moved away"); });
    if (records.status.failed())
        logOnce("watch:" + link.folder.glancesURL(), "suite folder not watched: " + records.status.message());
    link.glancesWatch = std::move(records.token);
}

void SuiteParticipant::recordsChanged() {
    if (didShutdown_) return;
    recordsCurrent_ = false;
    if (pendingRead_.active()) return;  // a reading is coming, and will see this change too
    const Seconds wait = lastEventRead_ + options_.rereadInterval - loop_.now();
    if (wait <= Seconds::zero()) {
        lastEventRead_ = loop_.now();
        return evaluate();
    }
    // Events come faster than they are read: stop hearing them until the reading, which sees every
    // change made meanwhile. A writer in a loop then wakes us ten times a second, not a thousand.
    for (FolderLink& link : links_) link.glancesWatch.cancel();
    pendingRead_ = loop_.after(wait, [this] {
        pendingRead_.cancel();  // a fired delay's token still counts as active
        // Listening again before reading, so nothing written after the reading goes unheard.
        for (std::size_t i = 0; i < links_.size(); ++i)
            if (links_[i].open && !links_[i].glancesWatch.active()) armRecordWatch(i);
        lastEventRead_ = loop_.now();
        // Changes made while the watch was paused went unheard, and another evaluation (the lock
        // won, a tick) may have read the folder before them: read it again whatever happened since.
        recordsCurrent_ = false;
        evaluate();
    });
}

void SuiteParticipant::suiteFolderChanged() {
    if (didShutdown_) return;
    // The lock file's name may now be another file's: the holder looks at once, not on its 5 s round.
    if (lock_) lock_->checkNow();
    checkFolders();
    if (settingsUnreadable_) reloadSettings();
}

void SuiteParticipant::checkFolders() {
    if (didShutdown_) return;
    bool lost = false;
    for (std::size_t i = 0; i < links_.size(); ++i) {
        if (!links_[i].open || links_[i].open->stillNamed()) continue;
        loseFolder(i, "replaced");
        lost = true;
    }
    if (!lost && !foldersReady() && !repairTimer_.active()) repairFolders();
}

void SuiteParticipant::loseFolder(std::size_t index, const std::string& why) {
    if (didShutdown_) return;
    FolderLink& link = links_[index];
    const bool wasOpen = link.open.has_value();
    link.open.reset();
    link.glancesWatch.cancel();
    link.folderWatch.cancel();
    recordsCurrent_ = false;
    if (wasOpen)
        logOnce("lost:" + link.folder.url, "suite folder " + link.folder.url + " was " + why + "; preparing it again");
    repairFolders();
}

void SuiteParticipant::repairFolders() {
    if (didShutdown_ || repairing_) return;
    repairing_ = true;
    repairTimer_.cancel();
    bool repaired = false, waiting = false;
    for (std::size_t i = 0; i < links_.size(); ++i) {
        FolderLink& link = links_[i];
        if (link.open && link.open->stillNamed()) continue;
        auto opened = OpenSuiteFolder::prepare(link.folder);
        if (opened.failed()) {
            const std::string reason = opened.status().message();
            link.open.reset();
            logOnce("unusable:" + link.folder.url + ":" + reason,
                    "suite folder not usable: " + link.folder.url + " (" + reason + "); trying again every 5 s");
            waiting = true;
            continue;
        }
        link.open = std::move(opened).value();
        armWatches(i);
        repaired = true;
    }
    if (repaired || waiting) {
        // Everything known of the folder may be out of date: read every record afresh, write ours at
        // once and compete for a lock file that may be a new one.
        recordsCurrent_ = false;
        schedule_.forceNext();
        if (lockHop_) startLock();
    }
    if (waiting)
        repairTimer_ = loop_.after(repairInterval, [this] {
            repairTimer_.cancel();  // a fired delay's token still counts as active
            repairFolders();
        });
    if (repaired) {
        if (settingsUnreadable_) reloadSettings();
        evaluate();
        writeIfDue(Seconds::zero());
    }
    repairing_ = false;
}

void SuiteParticipant::startLock() {
    // A new lock over the folders open now; the old one lets go first (its thread ends at once).
    lock_.reset();
    // Each lock file is opened inside the folder we hold, never through its path again.
    std::vector<std::pair<std::string, int>> lockFiles;
    for (const FolderLink& link : links_)
        if (link.open) lockFiles.emplace_back(link.folder.lockURL(), link.open->descriptor());
    if (lockFiles.empty()) return;
    lock_ = std::make_unique<HostLock>(lockFiles, options_.lockTiming);
    auto hop = [hop = lockHop_, alive = guard_.weak()](std::function<void()> work) {
        std::lock_guard guard(hop->mutex);
        if (!hop->loop) return;
        hop->loop->post([alive, work = std::move(work)] {
            if (alive) work();
        });
    };
    // Winning and losing the lock (its file replaced under us) both lead to a fresh evaluation,
    // which reads isHeld() and sets up or tears down hosting accordingly.
    auto reevaluate = [hop, this] { hop([this] { evaluate(); }); };
    // A lock file that cannot be made because its folder is gone: the folder needs preparing again.
    auto cannotOpen = [hop, this](int error) {
        if (error == ENOENT) hop([this] { checkFolders(); });
    };
    lock_->start(reevaluate, reevaluate, cannotOpen);
}

void SuiteParticipant::reloadSettings() {
    auto first =
        std::find_if(links_.begin(), links_.end(), [](const FolderLink& link) { return link.open.has_value(); });
    if (first == links_.end()) return;
    SuiteSettings::Loaded loaded = SuiteSettings::load(*first->open);
    if (loaded.unreadable) {
        // Defaults stand in meanwhile; the file keeps what other members stored in it.
        logOnce("settings-unreadable:" + *loaded.unreadable,
                "suite settings not read: settings.json could not be read (" + *loaded.unreadable +
                    "); it is kept as it is and not saved over until it can be read");
    }
    settings_ = std::move(loaded.settings);
    settingsUnreadable_ = std::move(loaded.unreadable);
}

SuiteParticipant::~SuiteParticipant() {
    shutdown();
    guard_.invalidate();
}

void SuiteParticipant::logOnce(const std::string& key, const std::string& message) {
    if (!loggedProblems_.insert(key).second) return;
    log::kit::error(logCategory, message);
}

void SuiteParticipant::report(Property property) {
    if (observer_) observer_(property);
}

GlanceRecord SuiteParticipant::currentRecord(WallTime now, GlanceState state) const {
    return GlanceRecord(app_, state == GlanceState::running && isHost_, state, epochSeconds(now), lastTTL_,
                        lastLevel_.value_or(GlanceLevel::ok), lastMetrics_);
}

void SuiteParticipant::startTimer(std::int64_t ttl) {
    timerTTL_ = ttl;
    const Seconds interval = timerInterval(ttl);
    timer_ = loop_.repeat(interval, interval / 10, [this] { tick(); });
}

void SuiteParticipant::tick() {
    if (didShutdown_) return;
    // A backstop for what no event tells: a parent folder moved, an event the system dropped.
    checkFolders();
    if (lock_) lock_->checkHeldHere();
    realignStatusItem();
    writeIfDue(timerInterval(timerTTL_) * 1.1);
    evaluate();
}

void SuiteParticipant::publish(GlanceLevel level, std::vector<GlanceMetric> metrics, std::int64_t ttl) {
    if (didShutdown_ || publishingSuspended_) return;
    const GlanceRecord candidate(app_, isHost_, GlanceState::running, epochSeconds(clock_()), ttl, level, metrics);
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
    writeIfDue(Seconds::zero());
}

void SuiteParticipant::checkStaleness(std::int64_t ttl) {
    if (!options_.staleAfter) return;
    const Seconds gap = longestWriteGap(ttl);
    if (gap <= *options_.staleAfter) return;
    logOnce("expired", "the interval between two publishes (" + seconds(gap) + " s) is longer than staleAfter (" +
                           seconds(*options_.staleAfter) + " s): the numbers blink");
}

void SuiteParticipant::writeIfDue(Seconds margin) {
    if (didShutdown_ || publishingSuspended_ || !lastLevel_) return;
    const WallTime now = clock_();
    const GlanceRecord record = currentRecord(now, GlanceState::running);
    if (!schedule_.isDue(record, epochSeconds(now + margin))) return;
    bool allWritten = foldersReady();
    for (const FolderLink& link : links_) {
        if (!link.open) continue;
        const Status written = link.open->write(record);
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
    // A write that failed because the folder went away ("no such file") prepares it again.
    if (!allWritten) checkFolders();
}

const std::map<SuiteApp, GlanceRecord>& SuiteParticipant::readRecords() {
    // Without a watch on every folder nothing says when a record changed: read each time.
    if (recordsCurrent_ && watchedEverywhere()) return records_;
    std::map<SuiteApp, GlanceRecord> records;
    for (const FolderLink& link : links_) {
        if (!link.open) continue;
        for (const auto& [app, result] : link.open->readAll()) {
            if (result.failed()) continue;
            const GlanceRecord* record = &result.value();
            // The same member seen in two folders: its latest word counts.
            auto [it, inserted] = records.emplace(app, *record);
            if (!inserted && record->at > it->second.at) it->second = *record;
        }
    }
    records_ = std::move(records);
    recordsCurrent_ = true;
    sightings_.observe(records_, loop_.now());
    return records_;
}

// The wall clock set back or ahead shows as a jump between it and the loop's continuous clock, which
// only moves forward with time (asleep or not).
void SuiteParticipant::noteClock() {
    const Seconds offset = clock_().time_since_epoch() - loop_.now().time_since_epoch();
    const std::optional<Seconds> previous = std::exchange(clockOffset_, offset);
    if (!previous || std::chrono::abs(offset - *previous) <= clockJumpThreshold) return;
    machine_.clockChanged(offset - *previous);
    // Our record's `at` is now off by the jump: readers would take it as stale or as from the future.
    schedule_.forceNext();
    records_.erase(app_);
}

void SuiteParticipant::evaluate() {
    if (didShutdown_) return;
    noteClock();
    const bool writeAtOnce = !schedule_.lastWritten && lastLevel_ && !publishingSuspended_;
    const WallTime now = clock_();
    std::map<SuiteApp, GlanceRecord> records = readRecords();  // a copy: ours may be added below
    if (app_.participates() && !publishingSuspended_) {
        auto own = records.find(app_);
        // Count ourselves at once, before our first record is on disk (or while an old one is stale).
        if (own == records.end() || !own->second.isFresh(epochSeconds(now)))
            records[app_] =
                GlanceRecord(app_, isHost_, GlanceState::running, epochSeconds(now), timerTTL_, GlanceLevel::ok, {});
    }
    machine_.update(records, now, sightings_.vouched(loop_.now()));

    // The user's choice is a look at the defaults file: taken once here, and only when the rules
    // alone do not decide.
    std::optional<bool> wanted;
    const auto showsIcon = [&] {
        if (removedByUser_) return false;
        if (ownIconByRules_) return true;
        if (!wanted) wanted = ownIconWanted();
        return *wanted;
    };
    const bool showedOwnIcon = showsIcon();
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
    if (showsIcon() != showedOwnIcon) report(Property::showsOwnIcon);

    reconcileHosting();
    if (host_ && hostNeedsUpdate) host_->update();
    // A record due at once (the clock was set, a folder was prepared again) is not left to the tick.
    if (writeAtOnce) writeIfDue(Seconds::zero());
}

void SuiteParticipant::reconcileHosting() {
    const bool wanted =
        !didShutdown_ && !publishingSuspended_ && app_.canHost() && lock_ && lock_->isHeld() && machine_.isActive;
    if (wanted && !host_) {
        // Another member may have hosted meanwhile and moved things: start from what it saved.
        reloadSettings();
        hostingRechecksLeft_ = hostingRechecks;
        host_ = std::make_unique<SuiteHost>(*this, statusItems_, options_.registerHotKey);
        setIsHost(true);
        host_->update();
        scheduleHostingRecheck();
        writeIfDue(Seconds::zero());  // the record's hosting flag tells the others at once
    } else if (!wanted && host_) {
        pendingRecheck_.cancel();
        hostingRechecksLeft_ = 0;
        std::unique_ptr<SuiteHost> host = std::move(host_);
        host->tearDown();
        setIsHost(false);
        writeIfDue(Seconds::zero());
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
    return ownIconByRules_ || ownIconWanted();
}

bool SuiteParticipant::ownIconWanted() const { return defaults_.boolean(std::string(showOwnIconKey)).value_or(false); }

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
    for (const FolderLink& link : links_) {
        if (!link.open) continue;
        // A file that cannot be read is refused here too: saving would drop what others stored.
        const Status saved = settings_.write(*link.open);
        if (saved.failed()) logOnce("settings:" + saved.message(), "suite settings not saved: " + saved.message());
    }
}

void SuiteParticipant::shutdown() {
    if (didShutdown_) return;
    didShutdown_ = true;
    timer_.cancel();
    repairTimer_.cancel();
    pendingRead_.cancel();
    for (FolderLink& link : links_) {
        link.glancesWatch.cancel();
        link.folderWatch.cancel();
    }
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
        for (const FolderLink& link : links_) {
            if (!link.open) continue;
            const Status written = link.open->write(last);
            if (written.failed())
                logOnce("write:" + written.message(), "glance record not written: " + written.message());
        }
    }
    if (lockHop_) {
        std::lock_guard guard(lockHop_->mutex);
        lockHop_->loop = nullptr;
    }
    if (lock_) lock_->release();
}

}  // namespace kestrow::suite
