#include "SafetyPolicy.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "base/Files.hpp"

namespace brimlet {

const std::string* SafetyDecision::allowedPath() const {
    const Allowed* a = std::get_if<Allowed>(&value);
    return a ? &a->path : nullptr;
}

const std::string* SafetyDecision::refusal() const {
    const Refused* r = std::get_if<Refused>(&value);
    return r ? &r->reason : nullptr;
}

std::optional<std::string> resolveRealPath(const std::string& path) {
    char resolved[PATH_MAX];
    if (!::realpath(path.c_str(), resolved)) return std::nullopt;
    return std::string(resolved);
}

bool isInside(std::string_view path, std::string_view folder) {
    if (folder.empty()) return false;
    if (folder.back() == '/') return path.size() > folder.size() && path.substr(0, folder.size()) == folder;
    return path.size() > folder.size() + 1 && path.substr(0, folder.size()) == folder && path[folder.size()] == '/';
}

const std::vector<std::string>& NeverTouch::commonRelativeRoots() {
    static const std::vector<std::string> roots = {
        ".claude/projects",
        ".ssh",
        ".gnupg",
        "Pictures",
        "Library/Keychains",
        "Library/Mobile Documents",
        "Library/Application Support/MobileSync/Backup",
        "Library/Safari",
        "Library/Containers/com.apple.Safari",
        "Library/Application Support/Google/Chrome",
        "Library/Application Support/Arc",
        "Library/Application Support/Firefox",
        "Library/Application Support/BraveSoftware",
        "Library/Application Support/Microsoft Edge",
    };
    return roots;
}

const std::vector<std::string>& NeverTouch::relativeRoots() {
    static const std::vector<std::string> all = [] {
        std::vector<std::string> roots = commonRelativeRoots();
        for (const std::string& extra : platformRelativeRoots()) roots.push_back(extra);
        return roots;
    }();
    return all;
}

const std::vector<std::string>& NeverTouch::protectedEndings() {
    static const std::vector<std::string> endings = {".photoslibrary", ".backupbundle", "Backups.backupdb",
                                                     ".keychain-db", ".keychain"};
    return endings;
}

namespace {
std::string resolvedHome(const std::string& home) {
    return resolveRealPath(home).value_or(kestrow::standardizePath(home));
}
}  // namespace

std::vector<std::string> NeverTouch::roots(const std::string& home) {
    const std::string base = resolvedHome(home);
    std::vector<std::string> roots;
    for (const std::string& relative : relativeRoots()) {
        // A protected folder that does not exist yet still protects its spelled-out location.
        const std::string joined = base + "/" + relative;
        roots.push_back(resolveRealPath(joined).value_or(joined));
    }
    return roots;
}

bool NeverTouch::hasProtectedComponent(std::string_view path) {
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view component = path.substr(0, slash);
        for (const std::string& ending : protectedEndings()) {
            if (component.size() >= ending.size() && component.substr(component.size() - ending.size()) == ending)
                return true;
        }
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    return false;
}

SafetyPolicy::SafetyPolicy(const std::string& home)
    : homePath_(resolvedHome(home)),
      neverTouchRoots_(NeverTouch::roots(home)) {}

std::string SafetyPolicy::shortForm(const std::string& path) const {
    if (path.rfind(homePath_, 0) != 0) return path;
    std::string shortPath = "~";
    shortPath.append(path, homePath_.size(), std::string::npos);
    return shortPath;
}

SafetyDecision SafetyPolicy::check(const std::string& path, const std::vector<std::string>& allowedRoots) const {
    using D = SafetyDecision;
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return D::refused("Already gone");
    if (S_ISLNK(st.st_mode)) return D::refused("Is a symbolic link; links are never followed for deletion");
    const auto resolved = resolveRealPath(path);
    if (!resolved) return D::refused("Could not resolve the real path");
    const std::string& p = *resolved;
    if (p == "/" || p == homePath_) return D::refused("Refusing to delete the root or home folder");
    if (!isInside(p, homePath_)) return D::refused("Outside the home folder");

    std::vector<std::string> roots;
    for (const std::string& root : allowedRoots)
        if (auto r = resolveRealPath(root)) roots.push_back(std::move(*r));
    if (roots.empty()) return D::refused("Not on the cleanup allowlist");
    bool listed = false;
    for (const std::string& root : roots) {
        if (p == root || isInside(p, root)) {
            listed = true;
            break;
        }
    }
    if (!listed) return D::refused("Not on the cleanup allowlist");

    // A visible folder directly in the home folder (Desktop, Downloads) is never deleted whole; a
    // hidden one only when it is itself the allowed root (.npm).
    std::vector<std::string_view> components;
    std::string_view rest = std::string_view(p).substr(homePath_.size());
    while (!rest.empty()) {
        const std::size_t slash = rest.find('/');
        if (slash != 0) components.push_back(rest.substr(0, slash));
        if (slash == std::string_view::npos) break;
        rest.remove_prefix(slash + 1);
    }
    if (components.empty()) return D::refused("Too close to the home folder");
    if (components.size() == 1) {
        const bool isRoot = std::find(roots.begin(), roots.end(), p) != roots.end();
        if (components[0].front() != '.' || !isRoot) return D::refused("Too close to the home folder");
    }

    for (const std::string& root : neverTouchRoots_) {
        if (p == root || isInside(p, root)) return D::refused("Protected: " + shortForm(root));
        if (isInside(root, p)) return D::refused("Contains protected data: " + shortForm(root));
    }
    if (NeverTouch::hasProtectedComponent(p)) return D::refused("Protected library or backup");
    return D::allowed(p);
}

}  // namespace brimlet
