// The application's cleanup run, on the main loop: one `CleanupSession` at a time, driven through
// the phases idle → measuring → scanning → ready → cleaning → finished. Measuring, scanning and
// cleaning happen on the session's executor; their progress and results come back to the loop, and
// a cancel reaches them through a flag they check between items.
//
// A reset starts over with a fresh session, so an approval given in an earlier run can never be
// spent in the next one. The last report stays available for export until a newer one replaces it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "app/stores/CleanupPhase.hpp"
#include "app/stores/Observers.hpp"
#include "base/MainLoop.hpp"
#include "base/Status.hpp"
#include "base/WeakGuard.hpp"
#include "core/cleanup/CleanupSession.hpp"

namespace brimlet {

class CleanupStore {
public:
    // Where a run is: `completed` of `total` items done, `current` the item in hand (cleaning). A
    // total of 0 means the step cannot tell how far it got (scanning, and measuring until the
    // first cache is measured).
    struct Progress {
        std::size_t completed = 0;
        std::size_t total = 0;
        std::string current;
        bool operator==(const Progress&) const = default;
    };

    // What the chosen items add up to: the total line and the delete-mode choice of the view.
    struct SelectionSummary {
        std::size_t count = 0;
        std::uint64_t bytes = 0;        // measured sizes of the chosen items
        std::size_t unmeasured = 0;     // chosen items whose size is known only after the run
        std::size_t personal = 0;       // chosen personal items: they go to the Trash in either mode
        bool permanentApplies = false;  // some chosen item would be deleted permanently if asked
        bool needsPermanent = false;    // some chosen item runs only when deleting permanently
        bool operator==(const SelectionSummary&) const = default;
    };

    // `fileOperations` empty: this platform's Trash and removal.
    CleanupStore(kestrow::MainLoop& loop, std::string home, std::unique_ptr<FileOperations> fileOperations = nullptr);
    ~CleanupStore();
    CleanupStore(const CleanupStore&) = delete;
    CleanupStore& operator=(const CleanupStore&) = delete;

    kestrow::MainLoop::Token observe(std::function<void()> onChange) {
        return observers_.subscribe(std::move(onChange));
    }

    CleanupPhase phase() const { return phase_; }
    bool isBusy() const { return phase_.isBusy(); }
    const Progress& progress() const { return progress_; }
    const std::optional<MeasureResult>& measured() const { return measured_; }
    const std::vector<CleanupItem>& personalItems() const { return personal_; }
    // Chosen ids; measuring preselects the caches that rebuild themselves, never personal items.
    const std::set<std::string>& selection() const { return selection_; }
    // The item of that id among those measured or scanned in this run; null when there is none.
    const CleanupItem* item(const std::string& id) const;
    // Whether choosing the item takes the user's explicit approval first: a personal item not yet chosen.
    bool needsApproval(const std::string& id) const;
    // Chooses or drops an item this run presented. A blocked item is never chosen, and a personal
    // one only through `approvePersonal`. True when the item is now chosen or not, as asked.
    bool setSelected(const std::string& id, bool selected);
    // Chooses one personal item after the user confirmed it explicitly, item by item. The clean
    // then binds these exact items to a one-time approval of the session.
    bool approvePersonal(const std::string& id);
    SelectionSummary selectionSummary() const;

    // The home folder's own folders, largest first, measured once a run is ready so the user sees
    // where the rest of the space goes. None until that measurement is in; it is given up (and stays
    // none) when the run goes on to clean, is cancelled or reset, so it never holds up a clean.
    const std::optional<std::vector<FolderUsage>>& homeUsage() const { return homeUsage_; }
    bool isMeasuringHome() const { return measuringHome_; }

    // Whether the application can read the folders the system protects: none when it cannot tell.
    // Read again at every start and on `refreshFullDiskAccess` (the user may have just granted it).
    const std::optional<bool>& fullDiskAccess() const { return fullDiskAccess_; }
    void refreshFullDiskAccess();
    // The question asked; the live one looks at a protected folder of the home folder. For tests.
    std::function<std::optional<bool>()> fullDiskAccessProbe;

    // The folders of the home folder the personal scan looks in that the system would not let it
    // open, by the name the screen gives them ("Downloads"), in `personalFolders` order; read at
    // every start. Finding nothing there is then no proof that nothing is there, and the screen says
    // so. Docker Desktop keeps its virtual disk in its app container, which macOS 14 guards as
    // another app's data.
    struct PersonalFolder {
        std::string_view path;  // below the home folder
        std::string_view name;
    };
    static constexpr std::array<PersonalFolder, 4> personalFolders{{
        {"Desktop", "Desktop"},
        {"Documents", "Documents"},
        {"Downloads", "Downloads"},
        {"Library/Containers/com.docker.docker", "Docker Desktop’s data"},
    }};
    const std::vector<std::string>& refusedFolders() const { return refusedFolders_; }
    // Whether the system refused to open the folder at that path; the live one opens it. For tests.
    std::function<bool(const std::string& path)> folderRefusalProbe;
    static bool isRefused(const std::string& path);
    const std::optional<CleanupReport>& lastReport() const { return lastReport_; }

    // How the chosen items go: the user's choice, Move to Trash at the start of every run. The
    // choice matters only while something chosen could go for good (`selectionSummary().permanentApplies`);
    // otherwise everything goes to the Trash and the choice is not offered.
    DeleteMode chosenDeleteMode() const { return chosenMode_; }
    void chooseDeleteMode(DeleteMode mode);
    bool deleteModeApplies() const { return selectionSummary().permanentApplies; }
    // The mode a clean started now would run in.
    DeleteMode deleteMode() const;

    // From idle, ready or finished: measure the caches, then look for personal items. False while busy.
    bool start();
    // Cleans the selection in `deleteMode()`, in the order the items were presented, under a fresh
    // approval of exactly those items. False unless ready with something selected.
    bool clean();
    // A cancel of a clean was asked for: the run stops after the item in hand.
    bool isStopping() const { return stopping_; }
    // Measuring and scanning stop and return to idle at once; cleaning stops before its next item
    // and still finishes with a report of what it did.
    void cancel();
    // Back to the start with a fresh session; a run under way is cancelled and its results dropped.
    void resetToIdle();

    // The last report in its two export forms; none without a report (or when it cannot be encoded).
    std::optional<std::string> reportMarkdown() const;
    std::optional<std::string> reportJSON() const;
    // Writes both forms into `folder` as "Cleanup Report <date> <time>.md" and ".json".
    [[nodiscard]] kestrow::Status exportReport(const std::string& folder) const;
    static std::string reportBaseName(const CleanupReport& report);

private:
    using CancelFlag = std::shared_ptr<std::atomic<bool>>;

    void setPhase(CleanupPhase phase);
    void scan(std::uint64_t generation);
    void measureHome(std::uint64_t generation);
    void stopMeasuringHome();
    std::vector<std::string> selectedInOrder() const;
    bool choose(const std::string& id, bool selected);
    bool readFullDiskAccess();  // true when the answer changed
    std::shared_ptr<CleanupSession> makeSession();
    // Runs `then` on the loop with the value unless the run was reset or cancelled meanwhile.
    template <typename T, typename F>
    void whenCurrent(std::future<T> future, std::uint64_t generation, F then);

    kestrow::MainLoop& loop_;
    std::string home_;
    std::unique_ptr<FileOperations> fileOperations_;
    Observers observers_;

    CleanupPhase phase_;
    Progress progress_;
    std::optional<MeasureResult> measured_;
    std::vector<CleanupItem> personal_;
    std::vector<std::string> refusedFolders_;
    std::set<std::string> selection_;
    std::optional<CleanupReport> lastReport_;
    std::optional<bool> fullDiskAccess_;
    std::optional<std::vector<FolderUsage>> homeUsage_;
    bool measuringHome_ = false;
    DeleteMode chosenMode_ = DeleteMode::trash;
    bool stopping_ = false;

    std::uint64_t generation_ = 0;  // bumped by every reset and cancel: late results are dropped
    CancelFlag cancelFlag_ = std::make_shared<std::atomic<bool>>(false);
    CancelFlag homeCancelFlag_ = std::make_shared<std::atomic<bool>>(false);  // the home folder's alone
    std::vector<std::weak_ptr<CleanupSession>> sessions_;  // every session that may still have work under way
    kestrow::WeakGuard guard_;
    // The current run's session, none before the first run and after a reset. Shared with the
    // closures of the work under way, so a reset never waits for that work.
    std::shared_ptr<CleanupSession> session_;
};

}  // namespace brimlet
