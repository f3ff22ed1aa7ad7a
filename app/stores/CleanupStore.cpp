#include "app/stores/CleanupStore.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/Checked.hpp"
#include "base/Files.hpp"
#include "base/Log.hpp"

namespace brimlet {

namespace {
constexpr std::string_view logCategory = "cleanup";
}

CleanupStore::CleanupStore(kestrow::MainLoop& loop, std::string home, std::unique_ptr<FileOperations> fileOperations)
    : loop_(loop),
      home_(std::move(home)),
      fileOperations_(fileOperations ? std::move(fileOperations) : std::make_unique<LiveFileOperations>()) {
    fullDiskAccessProbe = [home = home_] { return FullDiskAccess::isGranted(home); };
    folderRefusalProbe = &CleanupStore::isRefused;
}

CleanupStore::~CleanupStore() {
    // Work under way posts its result to the loop when it ends; it must end while this store (and
    // the loop it was promised to outlive) is still here. Ask it to stop at its next item first.
    cancelFlag_->store(true);
    homeCancelFlag_->store(true);
    guard_.invalidate();
    for (const std::weak_ptr<CleanupSession>& each : sessions_)
        if (const std::shared_ptr<CleanupSession> session = each.lock()) session->waitUntilIdle();
}

std::shared_ptr<CleanupSession> CleanupStore::makeSession() {
    std::erase_if(sessions_, [](const std::weak_ptr<CleanupSession>& each) { return each.expired(); });
    auto session = std::make_shared<CleanupSession>(home_, *fileOperations_);
    sessions_.push_back(session);
    return session;
}

template <typename T, typename F>
void CleanupStore::whenCurrent(std::future<T> future, std::uint64_t generation, F then) {
    session_->reply(
        std::move(future), loop_,
        [alive = guard_.weak(), this, generation, session = session_, then = std::move(then)](T value) mutable {
            // `session` keeps a replaced session alive until its last result is in.
            if (!alive || generation != generation_) return;
            then(std::move(value));
        });
}

void CleanupStore::setPhase(CleanupPhase phase) {
    if (!(phase == phase_)) stopping_ = false;
    phase_ = phase;
    if (!phase.isBusy()) progress_ = Progress{};
    observers_.notify();
}

const CleanupItem* CleanupStore::item(const std::string& id) const {
    auto find = [&](const std::vector<CleanupItem>& items) -> const CleanupItem* {
        auto found = std::find_if(items.begin(), items.end(), [&](const CleanupItem& each) { return each.id == id; });
        return found == items.end() ? nullptr : &*found;
    };
    if (measured_)
        if (const CleanupItem* found = find(measured_->regenerable)) return found;
    return find(personal_);
}

bool CleanupStore::needsApproval(const std::string& id) const {
    const CleanupItem* found = item(id);
    return found && found->kind == CleanupKind::personal && !selection_.count(id);
}

bool CleanupStore::choose(const std::string& id, bool selected) {
    if (selected) {
        const CleanupItem* found = item(id);
        if (!found || !found->isSelectable()) return false;
    }
    const bool changed = selected ? selection_.insert(id).second : selection_.erase(id) > 0;
    if (changed) observers_.notify();
    return true;
}

bool CleanupStore::setSelected(const std::string& id, bool selected) {
    if (selected && needsApproval(id)) return false;
    return choose(id, selected);
}

bool CleanupStore::approvePersonal(const std::string& id) {
    const CleanupItem* found = item(id);
    if (!found || !(found->kind == CleanupKind::personal)) return false;
    return choose(id, true);
}

CleanupStore::SelectionSummary CleanupStore::selectionSummary() const {
    SelectionSummary summary;
    for (const std::string& id : selection_) {
        const CleanupItem* chosen = item(id);
        if (!chosen) continue;
        ++summary.count;
        if (chosen->size) summary.bytes = kestrow::checkedAdd(summary.bytes, *chosen->size, "chosen cleanup sizes");
        else ++summary.unmeasured;
        if (chosen->kind == CleanupKind::personal) ++summary.personal;
        else summary.permanentApplies = true;
        if (chosen->action == CleanupAction::deleteUnavailableSimulators) summary.needsPermanent = true;
    }
    return summary;
}

void CleanupStore::chooseDeleteMode(DeleteMode mode) {
    if (chosenMode_ == mode) return;
    chosenMode_ = mode;
    observers_.notify();
}

DeleteMode CleanupStore::deleteMode() const {
    return deleteModeApplies() ? chosenMode_ : DeleteMode(DeleteMode::trash);
}

bool CleanupStore::readFullDiskAccess() {
    std::optional<bool> granted = fullDiskAccessProbe ? fullDiskAccessProbe() : std::nullopt;
    if (granted == fullDiskAccess_) return false;
    fullDiskAccess_ = granted;
    return true;
}

bool CleanupStore::isRefused(const std::string& path) {
    // A folder that is not there, or is no folder, is simply not looked in; only a refusal to
    // open one that is there (the system's privacy protection, or its permissions) counts.
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::close(fd);
        return false;
    }
    return errno == EPERM || errno == EACCES;
}

void CleanupStore::refreshFullDiskAccess() {
    if (readFullDiskAccess()) observers_.notify();
}

bool CleanupStore::start() {
    if (isBusy()) return false;
    const std::uint64_t generation = ++generation_;
    cancelFlag_ = std::make_shared<std::atomic<bool>>(false);
    stopMeasuringHome();
    homeUsage_.reset();
    // Every run gets its own session (and its thread only while there is one): approvals of an
    // earlier run are void in this one.
    session_ = makeSession();
    (void)readFullDiskAccess();  // the phase change below tells the observers
    refusedFolders_.clear();
    for (const PersonalFolder& folder : personalFolders)
        if (folderRefusalProbe && folderRefusalProbe(home_ + "/" + std::string(folder.path)))
            refusedFolders_.emplace_back(folder.name);
    measured_.reset();
    personal_.clear();
    selection_.clear();
    chosenMode_ = DeleteMode::trash;
    progress_ = Progress{};
    setPhase(CleanupPhase::measuring);
    auto onMeasured = [&loop = loop_, alive = guard_.weak(), this, generation](std::size_t measured,
                                                                               std::size_t total) {
        loop.post([alive, this, generation, measured, total] {
            if (!alive || generation != generation_ || !(phase_ == CleanupPhase::measuring)) return;
            progress_ = Progress{measured, total, {}};
            observers_.notify();
        });
    };
    whenCurrent(session_->measure([flag = cancelFlag_] { return flag->load(); }, std::move(onMeasured)), generation,
                [this, generation](MeasureResult result) {
                    for (const CleanupItem& item : result.regenerable)
                        if (item.isSelectable()) selection_.insert(item.id);
                    measured_ = std::move(result);
                    scan(generation);
                });
    return true;
}

void CleanupStore::scan(std::uint64_t generation) {
    setPhase(CleanupPhase::scanning);
    whenCurrent(session_->scanPersonal([flag = cancelFlag_] { return flag->load(); }), generation,
                [this, generation](std::vector<CleanupItem> items) {
                    personal_ = std::move(items);
                    setPhase(CleanupPhase::ready);
                    measureHome(generation);
                });
}

void CleanupStore::measureHome(std::uint64_t generation) {
    homeCancelFlag_ = std::make_shared<std::atomic<bool>>(false);
    measuringHome_ = true;
    observers_.notify();
    CancelFlag flag = homeCancelFlag_;
    whenCurrent(session_->homeUsage([flag] { return flag->load(); }), generation,
                [this, flag](std::vector<FolderUsage> folders) {
                    measuringHome_ = false;
                    // A walk given up half way would show folders smaller than they are.
                    if (!flag->load()) homeUsage_ = std::move(folders);
                    observers_.notify();
                });
}

void CleanupStore::stopMeasuringHome() {
    homeCancelFlag_->store(true);
    measuringHome_ = false;
}

std::vector<std::string> CleanupStore::selectedInOrder() const {
    std::vector<std::string> ids;
    auto take = [&](const std::vector<CleanupItem>& items) {
        for (const CleanupItem& item : items)
            if (selection_.count(item.id)) ids.push_back(item.id);
    };
    if (measured_) take(measured_->regenerable);
    take(personal_);
    return ids;
}

bool CleanupStore::clean() {
    if (!(phase_ == CleanupPhase::ready)) return false;
    const DeleteMode mode = deleteMode();
    std::vector<std::string> ids = selectedInOrder();
    if (ids.empty()) return false;
    const std::uint64_t generation = generation_;
    progress_ = Progress{0, ids.size(), {}};
    // The session does one thing at a time: the home folder's walk would hold up the clean.
    stopMeasuringHome();
    setPhase(CleanupPhase::cleaning);
    whenCurrent(session_->approve(ids), generation, [this, generation, ids, mode](CleanupApproval approval) {
        auto onProgress = [&loop = loop_, alive = guard_.weak(), this, generation,
                           total = ids.size()](std::size_t index, const CleanupItem& item) {
            loop.post([alive, this, generation, total, index, title = item.title] {
                if (!alive || generation != generation_ || !(phase_ == CleanupPhase::cleaning)) return;
                progress_ = Progress{index, total, title};
                observers_.notify();
            });
        };
        whenCurrent(
            session_->clean(ids, std::move(approval), mode, onProgress, [flag = cancelFlag_] { return flag->load(); }),
            generation, [this](CleanupReport report) {
                if (report.refusal) kestrow::log::error(logCategory, "cleanup refused: " + *report.refusal);
                lastReport_ = std::move(report);
                setPhase(CleanupPhase::finished);
            });
    });
    return true;
}

void CleanupStore::cancel() {
    if (!isBusy()) return;
    cancelFlag_->store(true);
    if (phase_ == CleanupPhase::cleaning) {  // its report comes, marked cancelled
        if (!stopping_) {
            stopping_ = true;
            observers_.notify();
        }
        return;
    }
    ++generation_;
    measured_.reset();
    personal_.clear();
    selection_.clear();
    setPhase(CleanupPhase::idle);
}

void CleanupStore::resetToIdle() {
    cancelFlag_->store(true);
    stopMeasuringHome();
    homeUsage_.reset();
    ++generation_;
    session_.reset();  // work under way keeps its session until its result is in, then drops it
    measured_.reset();
    personal_.clear();
    selection_.clear();
    setPhase(CleanupPhase::idle);
}

std::optional<std::string> CleanupStore::reportMarkdown() const {
    if (!lastReport_) return std::nullopt;
    return lastReport_->markdown();
}

std::optional<std::string> CleanupStore::reportJSON() const {
    if (!lastReport_) return std::nullopt;
    auto json = lastReport_->json();
    if (json.failed()) return std::nullopt;
    return std::move(*json);
}

std::string CleanupStore::reportBaseName(const CleanupReport& report) {
    // "2026-11-23T09:15:02Z" → "2026-11-23 09.15.02": no colons, which Finder shows as slashes.
    std::string stamp = kestrow::formatIsoDate(report.finishedAt).substr(0, 19);
    std::replace(stamp.begin(), stamp.end(), 'T', ' ');
    std::replace(stamp.begin(), stamp.end(), ':', '.');
    return "Cleanup Report " + stamp;
}

kestrow::Status CleanupStore::exportReport(const std::string& folder) const {
    if (!lastReport_) return kestrow::Status::failure("There is no cleanup report yet.");
    const auto json = lastReport_->json();
    if (json.failed()) return kestrow::Status::failure("The report could not be encoded.");
    const std::string base = folder + "/" + reportBaseName(*lastReport_);
    if (kestrow::Status written = kestrow::writeAtomically(base + ".md", lastReport_->markdown(), 0644);
        written.failed())
        return written;
    return kestrow::writeAtomically(base + ".json", *json, 0644);
}

}  // namespace brimlet
