// Decides which application a process belongs to, and folds the samples of one snapshot into
// application groups.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace brimlet {

struct ProcessSample;
struct AppGroup;

struct AppGrouper {
    struct Identity {
        std::string key;  // bundle path, or "cmd:" + command name
        std::string name;
        std::optional<std::string> bundlePath;

        bool operator==(const Identity&) const = default;
    };

    struct Bundle {
        std::string path;
        std::string name;
        bool operator==(const Bundle&) const = default;
    };

    // The outermost "*.app" component of an absolute path, so a helper bundle nested inside another
    // application counts for the application that ships it.
    static std::optional<Bundle> outermostBundle(const std::optional<std::string>& path);
    static Identity identity(const std::optional<std::string>& path, const std::optional<std::string>& argv0,
                             const std::string& name);
    // Every sample lands in exactly one group; groups come largest footprint first.
    static std::vector<AppGroup> group(const std::vector<ProcessSample>& samples);
};

}  // namespace brimlet
