#include "ApprovalScanner.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include "Pinning.hpp"
#include "SafetyPolicy.hpp"
#include "base/IsoDate.hpp"
#include "core/monitoring/ProcessReader.hpp"

namespace brimlet {

const std::vector<ApprovalScanner::VirtualMachine>& ApprovalScanner::virtualMachines() {
    static const std::vector<VirtualMachine> machines = {
        {"docker-vm",
         "Docker Desktop VM",
         "Docker Desktop's virtual disk: its images, containers and volumes are lost.",
         "Library/Containers/com.docker.docker/Data/vms",
         {"com.docker.backend", "com.docker.virtualization", "com.docker.hyperkit", "com.docker.vmnetd"}},
        {"colima-vm",
         "Colima VM",
         "Colima's virtual machines: their images, containers and volumes are lost.",
         ".colima",
         {"colima", "limactl"}},
    };
    return machines;
}

const std::vector<std::string>& ApprovalScanner::installerExtensions() {
    static const std::vector<std::string> extensions = {".dmg",      ".pkg", ".mpkg", ".zip", ".iso", ".xip",
                                                        ".appimage", ".deb", ".rpm",  ".msi", ".exe"};
    return extensions;
}

namespace {

std::vector<std::string> liveProcessNames() {
    std::vector<std::string> names;
    ProcessReading& reader = liveProcessReading();
    for (const std::int32_t pid : reader.allPIDs()) {
        if (auto info = reader.identity(pid)) names.push_back(info->name);
        // The kernel shortens names (15 characters on Linux); the executable's file name is whole.
        if (auto path = reader.executablePath(pid)) names.push_back(path->substr(path->rfind('/') + 1));
    }
    return names;
}

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool sameBytes(const std::string& a, const std::string& b, const CancelCheck& isCancelled) {
    const int fa = ::open(a.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    const int fb = ::open(b.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    bool same = fa >= 0 && fb >= 0;
    static constexpr std::size_t chunk = 1 << 16;
    std::vector<char> ba(chunk), bb(chunk);
    for (std::size_t round = 0; same; ++round) {
        if (round % 256 == 255 && isCancelled()) same = false;
        const ssize_t na = ::read(fa, ba.data(), chunk);
        const ssize_t nb = ::read(fb, bb.data(), chunk);
        if (na < 0 || nb < 0 || na != nb) same = false;
        else if (na == 0) break;
        else if (std::memcmp(ba.data(), bb.data(), static_cast<std::size_t>(na)) != 0) same = false;
    }
    if (fa >= 0) ::close(fa);
    if (fb >= 0) ::close(fb);
    return same;
}

}  // namespace

ApprovalScanner::ApprovalScanner(std::string home, int maxDepth, std::chrono::seconds activityWindow)
    : runningProcessNames(liveProcessNames),
      now(kestrow::currentDate),
      home_(resolveRealPath(home).value_or(home)),
      maxDepth_(maxDepth),
      activityWindow_(activityWindow),
      protectedRoots_(NeverTouch::roots(home)) {}

bool ApprovalScanner::underProtectedRoot(const std::string& path) const {
    for (const std::string& root : protectedRoots_)
        if (path == root || isInside(path, root) || isInside(root, path)) return true;
    return NeverTouch::hasProtectedComponent(path);
}

std::vector<CleanupItem> ApprovalScanner::scan(const CancelCheck& isCancelled) const {
    std::vector<CleanupItem> items = nodeModulesItems(isCancelled);
    for (CleanupItem& vm : virtualMachineItems()) items.push_back(std::move(vm));
    if (!isCancelled())
        for (CleanupItem& copy : duplicateInstallerItems(isCancelled)) items.push_back(std::move(copy));
    return items;
}

std::optional<bool> ApprovalScanner::isActive(const std::string& nodeModules) const {
    // A project is active when its manifest, its lock files or its installed packages changed within
    // the window; these are the files every package manager touches when someone works on it.
    const std::string project = nodeModules.substr(0, nodeModules.rfind('/'));
    std::optional<std::chrono::system_clock::time_point> latest;
    for (const std::string& file : {project + "/package.json", project + "/package-lock.json", project + "/yarn.lock",
                                    project + "/pnpm-lock.yaml", project + "/bun.lockb", project + "/bun.lock",
                                    nodeModules, nodeModules + "/.package-lock.json"}) {
        struct stat st {};
        if (::lstat(file.c_str(), &st) != 0) continue;
        const auto modified = std::chrono::system_clock::from_time_t(st.st_mtime);
        if (!latest || modified > *latest) latest = modified;
    }
    if (!latest) return std::nullopt;
    return now() - *latest < activityWindow_;
}

std::vector<CleanupItem> ApprovalScanner::nodeModulesItems(const CancelCheck& isCancelled) const {
    std::vector<CleanupItem> items;
    std::vector<std::pair<std::string, int>> stack = {{home_, 0}};
    std::size_t visited = 0;
    while (!stack.empty()) {
        if (++visited % 256 == 0 && isCancelled()) break;
        auto [folder, depth] = stack.back();
        stack.pop_back();
        DIR* dir = ::opendir(folder.c_str());
        if (!dir) continue;
        std::vector<std::string> children;
        while (const dirent* entry = ::readdir(dir)) {
            const std::string name = entry->d_name;
            // Hidden folders hold tools' own data (caches, version control), and Library holds
            // applications' data: projects live elsewhere.
            if (name.empty() || name[0] == '.' || (depth == 0 && name == "Library")) continue;
            struct stat st {};
            if (::fstatat(::dirfd(dir), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode)) continue;
            children.push_back(name);
        }
        ::closedir(dir);
        std::sort(children.begin(), children.end(), std::greater<>());  // popped in ascending order
        for (const std::string& name : children) {
            const std::string path = folder + "/" + name;
            if (underProtectedRoot(path)) continue;
            if (name == "node_modules") {
                const std::string project = folder.substr(folder.rfind('/') + 1);
                const std::string relative = path.substr(home_.size() + 1);
                CleanupItem item;
                item.id = "node-modules:" + relative;
                item.title = "node_modules in " + project;
                item.detail = "node_modules \u2014 reinstall with your package manager.";
                item.url = path;
                item.kind = CleanupKind::personal;
                item.isActive = isActive(path);
                if (!item.isActive) item.note = "Last activity unknown";
                else item.note = *item.isActive ? "Used in the last 30 days" : "Not used in the last 30 days";
                items.push_back(std::move(item));
            } else if (depth + 1 < maxDepth_) {
                stack.emplace_back(path, depth + 1);
            }
        }
    }
    std::sort(items.begin(), items.end(), [](const CleanupItem& a, const CleanupItem& b) { return a.url < b.url; });
    return items;
}

std::vector<CleanupItem> ApprovalScanner::virtualMachineItems() const {
    std::vector<CleanupItem> items;
    std::optional<std::set<std::string>> running;
    for (const VirtualMachine& machine : virtualMachines()) {
        const std::string path = home_ + "/" + machine.relativePath;
        struct stat st {};
        if (::lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || underProtectedRoot(path)) continue;
        if (!running) {
            const auto names = runningProcessNames();
            running = std::set<std::string>(names.begin(), names.end());
        }
        CleanupItem item;
        item.id = machine.id;
        item.title = machine.title;
        item.detail = machine.detail;
        item.url = path;
        item.kind = CleanupKind::personal;
        for (const std::string& process : machine.processNames) {
            // Linux keeps 15 characters of a process name; a shortened name matches its whole one.
            const bool match = std::any_of(running->begin(), running->end(), [&](const std::string& name) {
                return name == process || (name.size() == 15 && process.compare(0, 15, name) == 0);
            });
            if (match) {
                item.blockedReason = machine.title + " is running \u2014 quit it first";
                break;
            }
        }
        items.push_back(std::move(item));
    }
    return items;
}

std::vector<CleanupItem> ApprovalScanner::duplicateInstallerItems(const CancelCheck& isCancelled) const {
    struct Candidate {
        std::string path;
        std::string name;
        std::string folder;
        time_t modified = 0;
        FileIdentity identity;  // two names of one file (a hard link, a bind mount) are no duplicate
    };
    std::map<off_t, std::vector<Candidate>> bySize;
    for (const char* folderName : {"Downloads", "Desktop"}) {
        const std::string folder = home_ + "/" + folderName;
        // A linked folder is not read at all: its files are listed where they really are, or not
        // offered; read twice, one file would look like its own duplicate.
        const Descriptor pinned(openFolderNoLinks(folder, Resolution::fastest));
        if (!pinned.valid()) continue;
        const int listing = ::openat(pinned.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        DIR* dir = listing >= 0 ? ::fdopendir(listing) : nullptr;
        if (!dir) {
            if (listing >= 0) ::close(listing);
            continue;
        }
        while (const dirent* entry = ::readdir(dir)) {
            const std::string name = entry->d_name;
            const std::string lower = lowercase(name);
            const bool installer =
                std::any_of(installerExtensions().begin(), installerExtensions().end(), [&](const std::string& ext) {
                    return lower.size() > ext.size() && lower.compare(lower.size() - ext.size(), ext.size(), ext) == 0;
                });
            if (!installer) continue;
            struct stat st {};
            if (::fstatat(::dirfd(dir), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode) ||
                st.st_size == 0)
                continue;
            const std::string path = folder + "/" + name;
            if (underProtectedRoot(path)) continue;
            bySize[st.st_size].push_back(
                {path,
                 name,
                 folderName,
                 st.st_mtime,
                 {static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)}});
        }
        ::closedir(dir);
    }

    std::vector<CleanupItem> items;
    for (auto& [size, candidates] : bySize) {
        if (candidates.size() < 2) continue;
        if (isCancelled()) break;
        // The oldest copy is kept (it is usually the one the user found first); ties by path.
        std::sort(candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
            return a.modified != b.modified ? a.modified < b.modified : a.path < b.path;
        });
        std::vector<bool> claimed(candidates.size(), false);
        for (std::size_t keep = 0; keep < candidates.size(); ++keep) {
            if (claimed[keep]) continue;
            for (std::size_t other = keep + 1; other < candidates.size(); ++other) {
                if (claimed[other] || candidates[other].identity == candidates[keep].identity ||
                    !sameBytes(candidates[keep].path, candidates[other].path, isCancelled))
                    continue;
                claimed[other] = true;
                const Candidate& copy = candidates[other];
                CleanupItem item;
                item.id = "duplicate:" + copy.path.substr(home_.size() + 1);
                item.title = copy.name;
                item.detail =
                    "Same bytes as " + candidates[keep].name + " in " + candidates[keep].folder + ", which is kept.";
                item.url = copy.path;
                item.kind = CleanupKind::personal;
                item.requiresExisting = candidates[keep].path;
                items.push_back(std::move(item));
            }
        }
    }
    std::sort(items.begin(), items.end(), [](const CleanupItem& a, const CleanupItem& b) { return a.url < b.url; });
    return items;
}

}  // namespace brimlet
