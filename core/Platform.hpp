// What a platform provides to the core library, defined in the linux/ and darwin/ folders beside the
// logic each entry feeds. Readers return raw figures only; every rule over them is shared. The test
// PlatformSeams.EveryEntryIsDefined takes each address (see base/Platform.hpp).
#pragma once

#include <tuple>

#include "cleanup/Cleaner.hpp"
#include "cleanup/CleanupItem.hpp"
#include "cleanup/EntryStatus.hpp"
#include "cleanup/OpenFiles.hpp"
#include "cleanup/Pinning.hpp"
#include "cleanup/SafetyPolicy.hpp"
#include "cleanup/SizeMeasurer.hpp"
#include "common/DiskSpace.hpp"
#include "monitoring/Alerts.hpp"
#include "monitoring/ProcessReader.hpp"
#include "monitoring/SystemSampler.hpp"

namespace brimlet::platform {

inline constexpr auto coreSeams = std::make_tuple(
    // Monitoring (core/monitoring/linux: /proc and /sys; darwin: Mach, libproc, IOKit).
    &liveSystemReading,              // memory, pressure, swap, CPU ticks, GPU, disks, thermal state
    &liveProcessReading,             // the process list and each process's raw figures
    &TickClock::current,             // CPU-time ticks to nanoseconds
    &AlertWording::forThisPlatform,  // how alerts name the computer and what they suggest
    // The data volume (core/common).
    &DiskSpace::dataVolumeCandidates,  // where the user's data lives
    &DiskSpace::readBlocks,            // its free and total blocks
    // Cleaning (core/cleanup).
    &CleanupCatalog::entries,            // the regenerable caches of this platform
    &NeverTouch::platformRelativeRoots,  // folders under the home the cleaner never enters
    &openFolderNoLinks,                  // a folder opened without following any link
    &currentMountPoints,                 // the mounts, so a walk never crosses onto another
    &readEntryStatus,                    // an entry's type, size, device and inode, from its folder
    &liveOpenFileReading,                // which processes hold a file open
    &FullDiskAccess::isGranted,          // whether protected folders can be read at all
    &SimulatorTool::deleteUnavailable,   // the simulator tool's own cleanup, where there is one
    &SimulatorTool::developerDirectory,
    &LiveFileOperations::moveToTrash);  // the platform's Trash, through a pinned item

}  // namespace brimlet::platform
