// What cleanup asks of macOS beyond POSIX: entry status for the tree walks, and the files other
// processes hold open (libproc's descriptor list and each vnode descriptor's path).
#include <fcntl.h>
#include <libproc.h>
#include <sys/proc_info.h>
#include <sys/stat.h>

#include <vector>

#include "../EntryStatus.hpp"
#include "../OpenFiles.hpp"

namespace brimlet {

// Every mount on macOS is its own device, so the device comparison of the walks finds them all and
// mountRoot stays false.
std::optional<EntryStatus> readEntryStatus(int folder, const char* name) {
    struct stat st {};
    if (::fstatat(folder, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    EntryStatus status;
    status.mode = st.st_mode;
    status.allocatedBytes = static_cast<std::uint64_t>(st.st_blocks) * 512;
    status.device = static_cast<std::uint64_t>(st.st_dev);
    status.inode = static_cast<std::uint64_t>(st.st_ino);
    status.owner = st.st_uid;
    return status;
}

namespace {

class DarwinOpenFileReading final : public OpenFileReading {
public:
    std::optional<std::vector<std::string>> openFiles(std::int32_t pid) override {
        // The first call sizes the list; descriptors opened in between are caught by the margin.
        const int bytes = ::proc_pidinfo(pid, PROC_PIDLISTFDS, 0, nullptr, 0);
        if (bytes <= 0) return std::nullopt;
        std::vector<proc_fdinfo> descriptors(static_cast<std::size_t>(bytes) / PROC_PIDLISTFD_SIZE + 16);
        const int filled = ::proc_pidinfo(pid, PROC_PIDLISTFDS, 0, descriptors.data(),
                                          static_cast<int>(descriptors.size() * PROC_PIDLISTFD_SIZE));
        if (filled <= 0) return std::nullopt;
        descriptors.resize(static_cast<std::size_t>(filled) / PROC_PIDLISTFD_SIZE);
        std::vector<std::string> paths;
        for (const proc_fdinfo& descriptor : descriptors) {
            if (descriptor.proc_fdtype != PROX_FDTYPE_VNODE) continue;
            vnode_fdinfowithpath info{};
            if (::proc_pidfdinfo(pid, descriptor.proc_fd, PROC_PIDFDVNODEPATHINFO, &info,
                                 PROC_PIDFDVNODEPATHINFO_SIZE) != PROC_PIDFDVNODEPATHINFO_SIZE)
                continue;  // closed in the meantime
            if (info.pvip.vip_path[0] == '/') paths.emplace_back(info.pvip.vip_path);
        }
        return paths;
    }

    // Mapped files show among the descriptors only while they stay open; macOS has no maps text.
    std::optional<std::string> memoryMap(std::int32_t) override { return std::nullopt; }
};

}  // namespace

OpenFileReading& liveOpenFileReading() {
    static DarwinOpenFileReading reader;
    return reader;
}

}  // namespace brimlet
