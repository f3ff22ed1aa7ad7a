// Where the suite's members meet, how their records are written and read, and when to write again.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "GlanceRecord.hpp"
#include "base/Files.hpp"

namespace kestrow::suite {

struct SuiteFolder {
    std::string url;  // absolute, standardized path of the folder

    explicit SuiteFolder(std::string_view path);

    std::string glancesURL() const { return url + "/glances"; }
    std::string glanceURL(SuiteApp app) const { return glancesURL() + "/" + app.glanceFileName(); }
    std::string lockURL() const { return url + "/host.lock"; }
    std::string settingsURL() const { return url + "/settings.json"; }

    // The real home, even inside a sandbox whose environment points HOME into its container.
    [[nodiscard]] static std::string realHome();
    [[nodiscard]] static SuiteFolder plain(const std::string& home);
    // The user's own suite folder where this platform keeps application data: `plain` on the Mac;
    // on Linux "kestrow/suite" in the XDG data folder ($XDG_DATA_HOME when it is an absolute path,
    // else ~/.local/share). Defined beside the platform's group-container lookup.
    [[nodiscard]] static SuiteFolder standard(const std::string& home);
    // The group's container, when usableGroupFolder accepts it.
    [[nodiscard]] static std::optional<SuiteFolder> group(const std::string& identifier);
    [[nodiscard]] static bool isSandboxed();
    [[nodiscard]] static std::vector<SuiteFolder> reachable(const std::optional<std::string>& groupIdentifier);

    // Creates the folder and "glances" with permissions 0700 (existing folders are accepted), and
    // removes the temporary files that members killed while writing left there.
    kestrow::Status prepare() const;
    void removeStaleTemporaryFiles() const;

    bool operator==(const SuiteFolder&) const = default;
    bool operator<(const SuiteFolder& other) const { return url < other.url; }
};

// The platform's shared container for an application group, as the platform names it; none where
// there is no such thing. The platform names one even for an application that lacks the group's
// entitlement, so the path alone does not make it a place to use: see usableGroupFolder.
[[nodiscard]] std::optional<std::string> applicationGroupContainer(const std::string& identifier);

// Whether a group container is a suite folder this process may use. Sandboxed, the entitlement that
// lets the sandbox reach the container also makes it real, so it is used. Not sandboxed, it is used
// only when it exists already (a sandboxed member made it); creating it would scatter a folder that
// no member reads.
[[nodiscard]] std::optional<SuiteFolder> usableGroupFolder(const std::optional<std::string>& container,
                                                           bool sandboxed, bool exists);

struct GlanceStore {
    SuiteFolder folder;

    static constexpr std::size_t readLimit = GlanceCodec::maxBytes + 1;  // enough to tell "too long"

    // Encodes and replaces this application's record atomically; an error text on failure.
    kestrow::Status write(const GlanceRecord& record) const;
    [[nodiscard]] std::map<SuiteApp, GlanceReadResult> readAll() const;
    [[nodiscard]] std::optional<GlanceReadResult> read(SuiteApp app) const;
    [[nodiscard]] static SafeRead safeRead(const std::string& path, std::size_t limit) { return kestrow::safeRead(path, limit); }
};

struct PublishSchedule {
    std::optional<GlanceRecord> lastWritten;

    // A changed readout is due at once; an unchanged one at half its lifetime.
    [[nodiscard]] bool isDue(const GlanceRecord& record, double now) const;
    void didWrite(const GlanceRecord& record) { lastWritten = record; }
    void forceNext() { lastWritten.reset(); }
};

}  // namespace kestrow::suite
