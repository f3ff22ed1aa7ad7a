#include "Cleaner.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "ApprovalScanner.hpp"
#include "RemovalCheck.hpp"
#include "SizeMeasurer.hpp"
#include "base/Checked.hpp"
#include "base/Files.hpp"
#include "core/common/ByteFormat.hpp"
#include "core/common/DiskSpace.hpp"

extern char** environ;

namespace brimlet {

std::uint64_t freeBytesHolding(const std::vector<std::string>& paths) {
    std::set<dev_t> counted;
    std::uint64_t free = 0;
    for (std::string path : paths) {
        // A removed item counts for the folder that held it, which is on the same file system.
        struct stat st {};
        while (::stat(path.c_str(), &st) != 0 && path.size() > 1) {
            const std::size_t slash = path.rfind('/');
            path = slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
        }
        if (!counted.insert(st.st_dev).second) continue;
        if (const auto volume = DiskSpace::volume(path))
            free = kestrow::checkedAdd(free, volume->first, "free space sum overflow");
    }
    return free;
}

// ---- In use ----

bool InUseChecker::touches(const std::string& path, const std::string& realPath) {
    if (path.empty() || path.front() != '/') return false;
    auto within = [&](const std::string& candidate) { return candidate == realPath || isInside(candidate, realPath); };
    if (within(kestrow::standardizePath(path))) return true;
    const auto resolved = resolveRealPath(path);
    return resolved && within(*resolved);
}

namespace {
// A file held open or mapped: a database, a log being written, a library loaded from the folder.
bool holdsFiles(std::int32_t pid, const std::string& realPath, OpenFileReading& files) {
    if (const auto open = files.openFiles(pid))
        for (const std::string& path : *open)
            if (OpenFiles::holds(path, realPath)) return true;
    if (const auto maps = files.memoryMap(pid))
        for (const std::string& path : OpenFiles::mappedPaths(*maps))
            if (OpenFiles::holds(path, realPath)) return true;
    return false;
}
}  // namespace

bool InUseChecker::uses(std::int32_t pid, const std::string& realPath, ProcessReading& reader, OpenFileReading& files) {
    if (auto exe = reader.executablePath(pid); exe && touches(*exe, realPath)) return true;
    const auto cwd = reader.currentDirectory(pid);
    if (cwd && touches(*cwd, realPath)) return true;
    const auto args = reader.arguments(pid);
    if (!args) return holdsFiles(pid, realPath, files);
    for (const std::string& arg : *args) {
        if (arg.empty() || arg.front() == '-') continue;
        if (arg.front() == '/') {
            if (touches(arg, realPath)) return true;
        } else if ((arg.find('/') != std::string::npos || arg == "node_modules") && cwd) {
            // A relative argument names something in the process's working folder.
            if (touches(*cwd + "/" + arg, realPath)) return true;
        }
    }
    return holdsFiles(pid, realPath, files);
}

std::vector<ProcessUse> InUseChecker::processesUsing(const std::string& realPath, ProcessReading& reader,
                                                     OpenFileReading& files) {
    std::vector<ProcessUse> users;
    const std::int32_t self = ::getpid();
    for (const std::int32_t pid : reader.allPIDs()) {
        if (pid == self || !uses(pid, realPath, reader, files)) continue;
        const auto info = reader.identity(pid);
        users.push_back({pid, info ? info->name : std::string()});
    }
    return users;
}

// ---- Simulator tool ----

namespace {
std::string trimmed(const std::string& text) {
    const char* blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}
}  // namespace

SimulatorTool::Output SimulatorTool::run(const std::string& path, const std::vector<std::string>& arguments) {
    Output output;
    int out[2], err[2];
    if (::pipe(out) != 0) return output;
    if (::pipe(err) != 0) {
        ::close(out[0]);
        ::close(out[1]);
        return output;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addclose(&actions, err[0]);
    std::vector<std::string> args = {path};
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    // Both streams are drained together, so a tool that fills one pipe cannot stall on it.
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* sinks[2] = {&output.out, &output.err};
    int open = spawned == 0 ? 2 : 0;
    while (open > 0) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            char buffer[4096];
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                sinks[i]->append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                fds[i].fd = -1;
                --open;
            }
        }
    }
    ::close(out[0]);
    ::close(err[0]);
    if (spawned != 0) return output;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    output.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return output;
}

std::pair<std::int32_t, std::string> SimulatorTool::statusAndMessage(const Output& output) {
    return {output.status, trimmed(output.err.empty() ? output.out : output.err)};
}

std::optional<std::string> SimulatorTool::printedPath(const Output& output) {
    const std::string path = trimmed(output.out);
    if (output.status != 0 || path.empty()) return std::nullopt;
    return path;
}

std::optional<std::string> currentDeveloperDirectory() { return SimulatorTool::developerDirectory(); }

// ---- Cleaner ----

Cleaner::Cleaner(const std::string& home, FileOperations& operations)
    : policy(home),
      fileOperations(&operations),
      processesUsing([](const std::string& realPath) { return InUseChecker::processesUsing(realPath); }),
      freeSpace(freeBytesHolding),
      deleteUnavailableSimulators(SimulatorTool::deleteUnavailable),
      runningVirtualMachineIDs([](const std::string& forHome) {
          std::set<std::string> ids;
          for (const CleanupItem& item : ApprovalScanner(forHome).virtualMachineItems())
              if (item.blockedReason) ids.insert(item.id);
          return ids;
      }),
      census([](const PinnedItem& item) { return SizeMeasurer::census(item, CancelCheck()); }),
      removalCheck([](const PinnedItem& item) { return RemovalCheck::wholeTree(item); }),
      mountPoints(currentMountPoints),
      home_(home) {}

std::string Cleaner::inUseReason(const std::vector<ProcessUse>& users) {
    std::string reason = "In use by ";
    for (std::size_t i = 0; i < users.size() && i < 3; ++i) {
        if (i > 0) reason += ", ";
        reason += users[i].name + " (pid " + std::to_string(users[i].pid) + ")";
    }
    if (users.size() > 3) reason += " and " + std::to_string(users.size() - 3) + " more";
    return reason;
}

namespace {

std::string lastComponent(const std::string& path) {
    std::string trimmedPath = path;
    while (trimmedPath.size() > 1 && trimmedPath.back() == '/') trimmedPath.pop_back();
    const std::size_t slash = trimmedPath.rfind('/');
    return slash == std::string::npos ? trimmedPath : trimmedPath.substr(slash + 1);
}

// Runs one file operation, turning a thrown error into the same kind of text as a returned one.
template <typename F>
kestrow::Status guarded(F&& operation) {
    try {
        return operation();
    } catch (const std::exception& error) {
        return kestrow::Status::failure(error.what());
    } catch (...) {
        return kestrow::Status::failure("unknown error");
    }
}

}  // namespace

CleanupReport Cleaner::run(const std::vector<CleanupItem>& items, const std::vector<std::string>& allowedRoots,
                           DeleteMode mode, const Progress& progress, const CancelCheck& isCancelled) const {
    std::vector<AllowedRoot> roots;
    for (const std::string& root : allowedRoots) roots.push_back({root, std::nullopt});
    return run(items, roots, mode, progress, isCancelled);
}

namespace {

// Whether the roots that allow the real path are still the files they were when measured. A root
// measured as one folder that now resolves to another (a link or a mount put in its place) allows
// nothing; a root without a recorded identity is taken as it stands.
bool rootsUnchanged(const std::string& realPath, const std::vector<AllowedRoot>& roots) {
    bool anyChanged = false;
    for (const AllowedRoot& root : roots) {
        const auto resolved = resolveRealPath(root.path);
        if (!resolved || !(*resolved == realPath || isInside(realPath, *resolved))) continue;
        if (!root.identity) return true;
        struct stat st {};
        if (::lstat(resolved->c_str(), &st) == 0 &&
            FileIdentity{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)} ==
                *root.identity)
            return true;
        anyChanged = true;
    }
    return !anyChanged;
}

}  // namespace

CleanupReport Cleaner::run(const std::vector<CleanupItem>& items, const std::vector<AllowedRoot>& allowedRoots,
                           DeleteMode mode, const Progress& progress, const CancelCheck& isCancelled) const {
    CleanupReport report;
    report.startedAt = report.finishedAt = kestrow::currentDate();
    report.requestedMode = mode;
    // The free space that matters is that of the file systems the items are on, which is the home
    // folder's in the usual case; with no items, the home folder's.
    std::vector<std::string> volumes;
    for (const CleanupItem& item : items) volumes.push_back(item.url);
    if (volumes.empty()) volumes.push_back(home_);
    report.freeBefore = freeSpace(volumes);
    std::vector<std::string> rootPaths;
    for (const AllowedRoot& root : allowedRoots) rootPaths.push_back(root.path);

    std::set<std::string> runningMachines;
    const bool anyMachine = std::any_of(items.begin(), items.end(), [](const CleanupItem& item) {
        return item.id.size() >= 3 && item.id.compare(item.id.size() - 3, 3, "-vm") == 0;
    });
    if (anyMachine) runningMachines = runningVirtualMachineIDs(home_);

    for (std::size_t index = 0; index < items.size(); ++index) {
        const CleanupItem& item = items[index];
        if (isCancelled()) {
            report.cancelled = true;
            break;
        }
        if (progress) progress(index, item);
        auto skip = [&](std::string reason) { report.skipped.push_back({item.title, item.url, std::move(reason)}); };
        auto fail = [&](std::string reason) {
            report.skipped.push_back({item.title, item.url, std::move(reason), CleanupReport::SkipCause::failed});
        };

        if (item.blockedReason) {
            skip(*item.blockedReason);
            continue;
        }
        if (runningMachines.count(item.id)) {
            skip(item.title + " is running \u2014 quit it first");
            continue;
        }
        const bool simulators = item.action == CleanupAction::deleteUnavailableSimulators;
        if (simulators && !(mode == DeleteMode::permanent)) {
            skip("Simulators can only be deleted permanently \u2014 choose Delete permanently to include them");
            continue;
        }
        std::optional<FileIdentity> keptIdentity;
        if (item.requiresExisting) {
            // Followed through links: a kept copy replaced by a link to nothing is gone.
            struct stat st {};
            if (::stat(item.requiresExisting->c_str(), &st) != 0) {
                skip("The copy that was going to be kept (" + lastComponent(*item.requiresExisting) + ") is gone");
                continue;
            }
            keptIdentity = FileIdentity{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
        }
        const SafetyDecision decision = policy.check(item.url, rootPaths);
        if (const std::string* refusal = decision.refusal()) {
            skip(*refusal);
            continue;
        }
        const std::string& realPath = *decision.allowedPath();
        if (simulators) {
            if (const auto users = processesUsing(realPath); !users.empty()) {
                skip(inUseReason(users));
                continue;
            }
            // Only the tool deletes here; the folder is measured (by path) to tell what it took.
            const std::uint64_t sizeBefore = SizeMeasurer::census(item.url, CancelCheck()).bytes;
            const auto [status, message] = deleteUnavailableSimulators();
            if (status != 0) {
                fail("simctl failed: " + message);
                continue;
            }
            const std::uint64_t sizeAfter = SizeMeasurer::census(item.url, CancelCheck()).bytes;
            report.deleted.push_back({item.title, item.url, sizeBefore > sizeAfter ? sizeBefore - sizeAfter : 0,
                                      DeleteMode::permanent, false, std::nullopt});
            continue;
        }

        // From here on the item is reached only through the folder that holds it, pinned without
        // following a link anywhere, and only while it is the file that was judged and measured.
        // An item whose place in the home folder runs through a link is not pinned at all: the
        // judged real path must be the item's own path with nothing on the way resolved away.
        const bool measured = item.measuredIdentity.has_value();
        if (Pinning::expectedRealPath(item.url, home_, policy.homePath()) != realPath) {
            skip(measured ? Pinning::changedSinceMeasured : Pinning::linkOnPath);
            continue;
        }
        int pinError = 0;
        const auto pinned = Pinning::pin(realPath, pinError, resolution);
        if (!pinned) {
            if (pinError == ENOENT) skip("Already gone");
            else if (pinError == ELOOP || pinError == ENOTDIR)
                skip(measured ? Pinning::changedSinceMeasured : Pinning::linkOnPath);
            else skip("Error: " + std::string(std::strerror(pinError)));
            continue;
        }
        if (pinned->status.isLink()) {
            skip("Is a symbolic link; links are never followed for deletion");
            continue;
        }
        if ((measured && !(*item.measuredIdentity == pinned->identity())) || !rootsUnchanged(realPath, allowedRoots)) {
            skip(Pinning::changedSinceMeasured);
            continue;
        }
        if (keptIdentity && *keptIdentity == pinned->identity()) {
            skip("The copy that was going to be kept (" + lastComponent(*item.requiresExisting) +
                 ") is this same file");
            continue;
        }
        const TreeCensus before = census(*pinned);
        if (!before.exists) {
            skip(Pinning::unchanged(*pinned) ? "Error: " + std::string(std::strerror(EIO))
                                             : Pinning::changedSinceMeasured);
            continue;
        }
        const std::uint64_t bytes = before.bytes;
        if (const auto users = processesUsing(realPath); !users.empty()) {
            skip(inUseReason(users));
            continue;
        }
        // Personal data is never deleted permanently, whatever the user chose: it goes to the Trash.
        const bool permanent = mode == DeleteMode::permanent && item.kind == CleanupKind::regenerable;
        // Removal for good is tried only on a tree that can go whole. A move to the Trash takes the
        // item whole in one rename, unreadable parts and all, but never a mount: what lies on another
        // file system would be erased with the Trash.
        const kestrow::Status checked =
            permanent ? removalCheck(*pinned)
                      : RemovalCheck::noMountInside(*pinned, before.mountInside, before.unreadable > 0,
                                                    before.unreadable > 0 ? mountPoints() : std::vector<std::string>{});
        if (checked.failed()) {
            skip(checked.message());
            continue;
        }
        const kestrow::Status outcome = guarded([&] {
            return permanent ? fileOperations->removePermanently(*pinned) : fileOperations->moveToTrash(*pinned);
        });
        if (outcome.failed()) {
            if (!permanent) {
                fail("Error: " + outcome.message());
                continue;
            }
            // A removal that stopped part way has still removed something: the report says so and
            // how much, instead of listing the item as if it were untouched.
            const TreeCensus after = census(*pinned);
            if (!after.exists) {
                report.deleted.push_back({item.title, item.url, bytes, DeleteMode::permanent, false, std::nullopt});
            } else if (after.bytes < before.bytes || after.entries < before.entries) {
                fail("Error: " + outcome.message() + partlyRemoved +
                     ByteFormat::string(before.bytes > after.bytes ? before.bytes - after.bytes : 0) + ")");
            } else {
                fail("Error: " + outcome.message());
            }
            continue;
        }
        // A tree moved whole with parts that could not be read took more than was counted: said so.
        const std::optional<bool> incomplete = before.unreadable > 0 ? std::optional<bool>(true) : std::nullopt;
        report.deleted.push_back({item.title, item.url, bytes, permanent ? DeleteMode::permanent : DeleteMode::trash,
                                  !permanent && mode == DeleteMode::permanent, incomplete});
    }
    report.freeAfter = freeSpace(volumes);
    report.finishedAt = kestrow::currentDate();
    return report;
}

}  // namespace brimlet
