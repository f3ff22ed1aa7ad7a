// The deleting engine: walks the selected items in order, re-judges each real path with the safety
// policy right before touching it, moves or removes it, and reports every item it reached once.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CancelCheck.hpp"
#include "CleanupItem.hpp"
#include "CleanupReport.hpp"
#include "OpenFiles.hpp"
#include "Pinning.hpp"
#include "SafetyPolicy.hpp"
#include "SizeMeasurer.hpp"
#include "base/Status.hpp"
#include "core/monitoring/ProcessReader.hpp"

namespace brimlet {

// The two operations that change the disk, each on an item pinned by the folder that holds it:
// they act through that folder's descriptor, never by the path again. Each returns a failure with
// the platform's description; an implementation may also throw, and the cleaner turns that into
// the same kind of text.
class FileOperations {
public:
    virtual ~FileOperations() = default;
    virtual kestrow::Status moveToTrash(const PinnedItem& item) = 0;
    virtual kestrow::Status removePermanently(const PinnedItem& item) = 0;
};

// The user's Trash on this platform (the freedesktop.org Trash on Linux), and removal that never
// follows a link and never crosses onto another file system. A removal that fails part way names
// the entry it stopped at.
class LiveFileOperations final : public FileOperations {
public:
    kestrow::Status moveToTrash(const PinnedItem& item) override;
    kestrow::Status removePermanently(const PinnedItem& item) override;
};

// A folder under which deletion is allowed, and which file it was when it was measured.
struct AllowedRoot {
    std::string path;
    std::optional<FileIdentity> identity;
};

struct ProcessUse {
    std::int32_t pid = 0;
    std::string name;
    bool operator==(const ProcessUse&) const = default;
};

namespace InUseChecker {
// Every other process whose executable, working folder or arguments lie at or below the path,
// or that holds a file there open or mapped into memory.
std::vector<ProcessUse> processesUsing(const std::string& realPath, ProcessReading& reader = liveProcessReading(),
                                       OpenFileReading& files = liveOpenFileReading());
bool uses(std::int32_t pid, const std::string& realPath, ProcessReading& reader = liveProcessReading(),
          OpenFileReading& files = liveOpenFileReading());
bool touches(const std::string& path, const std::string& realPath);
}  // namespace InUseChecker

namespace SimulatorTool {
struct Output {
    std::int32_t status = -1;
    std::string out;
    std::string err;
};
Output run(const std::string& path, const std::vector<std::string>& arguments);
// The status, and standard error (else output) trimmed of white space at both ends.
std::pair<std::int32_t, std::string> statusAndMessage(const Output& output);
// The trimmed output of a successful run that printed something.
std::optional<std::string> printedPath(const Output& output);

// The platform's part (Xcode exists only on a Mac):
// "xcrun simctl delete unavailable": the status and message as above.
std::pair<std::int32_t, std::string> deleteUnavailable();
// "xcode-select -p"; none when it fails or prints nothing (always on Linux).
std::optional<std::string> developerDirectory();
}  // namespace SimulatorTool

struct Cleaner {
    using Progress = std::function<void(std::size_t index, const CleanupItem& item)>;

    SafetyPolicy policy;
    FileOperations* fileOperations = nullptr;  // not owned
    std::function<std::vector<ProcessUse>(const std::string&)> processesUsing;
    // Free bytes of the file systems that hold the given paths, each counted once.
    std::function<std::uint64_t(const std::vector<std::string>& paths)> freeSpace;
    std::function<std::pair<std::int32_t, std::string>()> deleteUnavailableSimulators;
    std::function<std::set<std::string>(const std::string& home)> runningVirtualMachineIDs;
    // Measures a pinned item: what is measured is what the removal will act on.
    std::function<TreeCensus(const PinnedItem&)> census;
    // Looks at a whole tree before it is removed for good (RemovalCheck::wholeTree).
    std::function<kestrow::Status(const PinnedItem&)> removalCheck;
    // The system's mount points, asked when a tree going to the Trash could not be read whole.
    std::function<std::vector<std::string>()> mountPoints;
    Resolution resolution = Resolution::fastest;

    // The live collaborators for a home folder.
    Cleaner(const std::string& home, FileOperations& operations);

    CleanupReport run(const std::vector<CleanupItem>& items, const std::vector<std::string>& allowedRoots,
                      DeleteMode mode, const Progress& progress, const CancelCheck& isCancelled) const;
    // The same with the identity each root had when it was measured: a root that is no longer
    // that file allows nothing.
    CleanupReport run(const std::vector<CleanupItem>& items, const std::vector<AllowedRoot>& allowedRoots,
                      DeleteMode mode, const Progress& progress, const CancelCheck& isCancelled) const;

    // Appended to the error of a removal that stopped part way, before the size of what went.
    static constexpr const char* partlyRemoved = " \u2014 part of it was removed (";

    // "In use by a (pid 1), b (pid 2), c (pid 3) and 2 more"
    static std::string inUseReason(const std::vector<ProcessUse>& users);

private:
    std::string home_;
};

// Free bytes of the file systems that hold the paths (a path that no longer exists counts for the
// folder above it), each file system once; 0 for what cannot be read.
std::uint64_t freeBytesHolding(const std::vector<std::string>& paths);

}  // namespace brimlet
