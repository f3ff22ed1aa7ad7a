// The last word before anything is deleted. Every path is judged on its real, resolved location,
// immediately before deletion, against a fixed order of tests with fixed refusal texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brimlet {

struct SafetyDecision {
    struct Allowed {
        std::string path;  // the resolved real path: delete this, not what was asked
        bool operator==(const Allowed&) const = default;
    };
    struct Refused {
        std::string reason;
        bool operator==(const Refused&) const = default;
    };
    std::variant<Allowed, Refused> value;

    static SafetyDecision allowed(std::string path) { return {Allowed{std::move(path)}}; }
    static SafetyDecision refused(std::string reason) { return {Refused{std::move(reason)}}; }
    bool isAllowed() const { return std::holds_alternative<Allowed>(value); }
    const std::string* allowedPath() const;
    const std::string* refusal() const;
    bool operator==(const SafetyDecision&) const = default;
};

namespace NeverTouch {
// Relative to the home folder: keys, photos, device backups, browser profiles, mail of a kind.
const std::vector<std::string>& relativeRoots();        // the common roots, then this platform's
const std::vector<std::string>& commonRelativeRoots();  // the fourteen of every platform
const std::vector<std::string>& platformRelativeRoots();
const std::vector<std::string>& protectedEndings();

std::vector<std::string> roots(const std::string& home);
// True when a path component ends with a photo-library, backup or keychain ending.
bool hasProtectedComponent(std::string_view path);
}  // namespace NeverTouch

class SafetyPolicy {
public:
    explicit SafetyPolicy(const std::string& home);

    SafetyDecision check(const std::string& path, const std::vector<std::string>& allowedRoots) const;

    const std::string& homePath() const { return homePath_; }
    const std::vector<std::string>& neverTouchRoots() const { return neverTouchRoots_; }

private:
    std::string shortForm(const std::string& path) const;

    std::string homePath_;
    std::vector<std::string> neverTouchRoots_;
};

// The operating system's real path; none when the path does not exist.
std::optional<std::string> resolveRealPath(const std::string& path);
// True when `path` lies strictly inside `folder`.
bool isInside(std::string_view path, std::string_view folder);

}  // namespace brimlet
