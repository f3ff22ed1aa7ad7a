// The one object through which an application takes part in the suite: it publishes this
// application's glance record, watches the suite folders, runs the suite's state machine, competes
// for the host lock and, while it hosts an active suite, owns the `SuiteHost`.
//
// Everything runs on the main loop's thread; the host lock's thread only hops back through a post.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "SuiteHost.hpp"
#include "SuiteOpenObserver.hpp"
#include "base/MainLoop.hpp"
#include "base/Time.hpp"
#include "base/UserDefaults.hpp"
#include "base/WeakGuard.hpp"
#include "suite/protocol/HostLock.hpp"
#include "suite/protocol/SuiteFolder.hpp"
#include "suite/protocol/SuiteState.hpp"

namespace kestrow::suite {

class SuiteParticipant {
public:
    static constexpr std::string_view showOwnIconKey = "KestrowSuite.showOwnIcon";
    static constexpr std::string_view logCategory = "participant";
    static constexpr int hostingRechecks = 12;
    static constexpr Seconds hostingRecheckInterval{1.0};
    static constexpr Seconds settingsSaveDelay{0.5};
    static constexpr Seconds wakeWriteMargin{0};
    // Folder events are read at most this often: another process rewriting a record a thousand
    // times a second costs ten readings a second, the last one after its final write.
    static constexpr Seconds defaultRereadInterval{0.1};
    // The host checks its lock files on each tick of its timer (and at once when the folder says
    // so), on a wake it has anyway: the lock's own thread then looks only once a minute, as a
    // backstop, instead of waking every 5 s for it.
    static HostLock::Timing defaultLockTiming() {
        HostLock::Timing timing;
        timing.heldCheck = std::chrono::minutes(1);
        return timing;
    }
    // How often a suite folder that was deleted or replaced, and cannot be prepared again yet, is
    // tried again.
    static constexpr Seconds repairInterval{5.0};
    // A change between the wall clock and the loop's continuous clock larger than this is the wall
    // clock being set, not drift.
    static constexpr Seconds clockJumpThreshold{1.0};

    struct Options {
        std::function<WallTime()> clock;                    // empty: the loop's wall clock
        bool observeSystem = true;                          // follow the machine's sleep and wake
        std::optional<Seconds> staleAfter;                  // only for a warning
        std::function<void()> onOpen;                       // another member asks to open this application
        bool registerHotKey = true;                         // whether a host registers the suite shortcut
        HostLock::Timing lockTiming = defaultLockTiming();  // how the host lock polls and re-checks
        Seconds rereadInterval = defaultRereadInterval;     // the least time between two event readings
    };

    // What the user interface observes; each is reported only when it changed.
    enum class Property { isActive, isHost, rows, worstLevel, menuBarValues, showsOwnIcon };

    // The timer's interval for a ttl: half the ttl (clamped to 3…60) less half a second, at most 5 s.
    static Seconds timerInterval(std::int64_t ttl);
    static Seconds timerTolerance(std::int64_t ttl) { return timerInterval(ttl) / 10; }
    // How far apart two writes of an unchanged record can lie: half the ttl plus a late tick.
    static Seconds longestWriteGap(std::int64_t ttl) { return Seconds(ttl * 0.5) + timerTolerance(ttl); }

    SuiteParticipant(SuiteApp app, std::vector<SuiteFolder> folders, UserDefaults& defaults,
                     SuiteStatusItemFactory statusItems, MainLoop& loop, Options options);
    ~SuiteParticipant();
    SuiteParticipant(const SuiteParticipant&) = delete;
    SuiteParticipant& operator=(const SuiteParticipant&) = delete;

    SuiteApp app() const { return app_; }
    bool isActive() const { return isActive_; }
    bool isHost() const { return isHost_; }
    const std::vector<SuiteRow>& rows() const { return rows_; }
    GlanceLevel worstLevel() const { return worstLevel_; }
    const SuiteValues& menuBarValues() const { return menuBarValues_; }
    const SuiteSettings& settings() const { return settings_; }
    const std::vector<SuiteFolder>& folders() const { return folders_; }
    // Whether every usable folder is open and checked (none is waiting to be prepared again).
    bool foldersReady() const;
    const SuiteStateMachine& stateMachine() const { return machine_; }
    void onChange(std::function<void(Property)> observer) { observer_ = std::move(observer); }

    // This application's readout: written at once when it changed, else renewed on the schedule.
    void publish(GlanceLevel level, std::vector<GlanceMetric> metrics, std::int64_t ttl);
    // No more writes; the record goes stale by itself and this application stops hosting.
    void suspendPublishing();
    // At application end, once: a last record that says stopped, the lock released.
    void shutdown();
    void didWake();
    // A reopen brings back an own icon that the user had removed from the menu bar; true then.
    bool handleReopen();
    // Stores the floating bar's top-left corner in the shared settings and saves them soon.
    void floatingBarMoved(Point topLeft);
    // Stores whether the floating bar shows, and saves soon.
    void setFloatingVisible(bool visible);
    // Stores whether the floating bar shows every value or one line per member, and saves soon.
    void setFloatingExpanded(bool expanded);

    // Whether this application shows its own menu bar icon: the user's wish, or the suite's rule
    // (not active, or no host speaking); never after the user removed the icon from the menu bar.
    bool showsOwnIcon() const;
    // The menu bar's side of the binding: false when the user removed the icon.
    void setShowsOwnIcon(bool shown);
    // The user's "Show my own menu bar icon" setting: kept in the defaults under `showOwnIconKey`, and
    // observers hear at once when it changes what the menu bar shows.
    bool ownIconWanted() const;
    Status setOwnIconWanted(bool wanted);

    SuiteHost* host() { return host_.get(); }
    const HostLock* lock() const { return lock_.get(); }
    bool didShutdown() const { return didShutdown_; }
    bool lastWriteFailed() const { return lastWriteFailed_; }
    std::int64_t timerTTL() const { return timerTTL_; }

    // Logs `message` the first time `key` comes up; the same problem is not repeated.
    void logOnce(const std::string& key, const std::string& message);

private:
    GlanceRecord currentRecord(WallTime now, GlanceState state) const;
    void startTimer(std::int64_t ttl);
    void tick();
    void evaluate();
    void reconcileHosting();
    void scheduleHostingRecheck();
    void writeIfDue(Seconds margin);
    void realignStatusItem();
    void saveSettingsSoon();
    void saveSettings();
    void setIsHost(bool value);
    void report(Property property);
    // The records on disk. Between two changes the watch reports, the last reading stands: most
    // evaluations come from the timer and from publishing, when nothing in the folders moved.
    const std::map<SuiteApp, GlanceRecord>& readRecords();
    void checkStaleness(std::int64_t ttl);

    // The suite folders' lifecycle: watched while open; deleted or replaced, they are prepared again
    // at once and then every repairInterval until that works, and the lock is competed for anew.
    void armWatches(std::size_t index);
    void armRecordWatch(std::size_t index);
    void recordsChanged();
    void suiteFolderChanged();
    void checkFolders();
    void loseFolder(std::size_t index, const std::string& why);
    void repairFolders();
    void startLock();
    void reloadSettings();
    bool watchedEverywhere() const;
    void noteClock();

    // Inputs.
    SuiteApp app_;
    std::vector<SuiteFolder> folders_;  // the usable ones
    UserDefaults& defaults_;
    SuiteStatusItemFactory statusItems_;
    MainLoop& loop_;
    Options options_;
    std::function<WallTime()> clock_;

    // Published.
    bool isActive_ = false;
    bool isHost_ = false;
    std::vector<SuiteRow> rows_;
    GlanceLevel worstLevel_;
    SuiteValues menuBarValues_;
    std::function<void(Property)> observer_;

    // Private state.
    SuiteSettings settings_;
    bool removedByUser_ = false;
    bool ownIconByRules_ = true;
    SuiteStateMachine machine_;
    bool lastWriteFailed_ = false;
    PublishSchedule schedule_;
    std::optional<GlanceLevel> lastLevel_;
    std::vector<GlanceMetric> lastMetrics_;
    std::int64_t lastTTL_ = 10;
    struct LockHop {
        std::mutex mutex;
        MainLoop* loop = nullptr;  // null once shut down
    };
    std::shared_ptr<LockHop> lockHop_;
    std::unique_ptr<HostLock> lock_;
    std::unique_ptr<SuiteHost> host_;
    struct FolderLink {
        SuiteFolder folder;
        std::optional<OpenSuiteFolder> open;  // none while it waits to be prepared again
        MainLoop::Token glancesWatch;         // other members' records
        MainLoop::Token folderWatch;          // "host.lock", "settings.json" and "glances" itself
    };
    std::vector<FolderLink> links_;  // one per usable folder, in the order of folders_
    MainLoop::Token repairTimer_;
    bool repairing_ = false;
    std::map<SuiteApp, GlanceRecord> records_;
    bool recordsCurrent_ = false;  // records_ holds what the folders held since the last change
    RecordSightings sightings_;
    MainLoop::Token pendingRead_;
    ContinuousTime lastEventRead_ = ContinuousTime::min();
    // The wall clock's reading less the continuous clock's: only its changes mean anything.
    std::optional<Seconds> clockOffset_;
    std::optional<std::string> settingsUnreadable_;  // the shared file is kept and not saved over
    MainLoop::Token timer_;
    std::int64_t timerTTL_ = 0;
    MainLoop::Token wakeObserver_;
    std::unique_ptr<SuiteOpenObserver> openObserver_;
    MainLoop::Token pendingSave_;
    MainLoop::Token pendingRecheck_;
    int hostingRechecksLeft_ = 0;
    std::set<std::string> loggedProblems_;
    bool didShutdown_ = false;
    bool publishingSuspended_ = false;
    kestrow::WeakGuard guard_;  // posts from the lock thread check it
};

}  // namespace kestrow::suite
