// Where the suite's members meet, how their records are written and read, and when to write again.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
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

    // Creates the folder and "glances" with permissions 0700 (existing folders are accepted), checks
    // them as OpenSuiteFolder::prepare does, and removes the temporary files that members killed while
    // writing left there.
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
[[nodiscard]] std::optional<SuiteFolder> usableGroupFolder(const std::optional<std::string>& container, bool sandboxed,
                                                           bool exists);

// A suite folder opened and checked: the folder and its "glances" are real folders (never a link)
// owned by this user, with permissions 0700. Both are held by descriptor and every read and write
// below goes through them, so a path that is swapped for a link after the check never receives a
// byte. When the folder is deleted or replaced the descriptors keep naming the old one: `stillNamed`
// tells, and the holder opens the folder afresh.
//
// Opening fails with `permissionDenied` when a folder is not private (a link, or a folder of another
// user: writing there would write where others chose), and with `unavailable` when it cannot be made
// or opened (no such folder, no permission, a file in the way).
class OpenSuiteFolder {
public:
    // Creates what is missing (the folder with its parents, then "glances"), each with permissions
    // 0700, then opens both as `open` does.
    [[nodiscard]] static kestrow::Result<OpenSuiteFolder> prepare(const SuiteFolder& folder);
    // Opens both folders without creating anything and without following a link at either; refuses
    // a folder owned by another user and sets a folder of ours with other permissions to 0700. A
    // missing "glances" is accepted here (its records then cannot be written, the settings can).
    [[nodiscard]] static kestrow::Result<OpenSuiteFolder> open(const SuiteFolder& folder);

    OpenSuiteFolder(OpenSuiteFolder&& other) noexcept;
    OpenSuiteFolder& operator=(OpenSuiteFolder&& other) noexcept;
    OpenSuiteFolder(const OpenSuiteFolder&) = delete;
    OpenSuiteFolder& operator=(const OpenSuiteFolder&) = delete;
    ~OpenSuiteFolder();

    const SuiteFolder& folder() const { return folder_; }
    // The held suite folder, for files reached inside it (the host lock); valid while this lives.
    int descriptor() const { return folderFd_; }
    // Whether the folder's paths still name the two folders held: false once either was deleted,
    // moved away or replaced (a moved parent included).
    [[nodiscard]] bool stillNamed() const;

    // This application's record, replaced atomically inside the held "glances". A folder held for a
    // while keeps a spare beside the record and swaps it in (see kestrow::SwappedFile), so the
    // rewrite every few seconds makes no new file; the spare goes when this is closed.
    kestrow::Status write(const GlanceRecord& record) const;
    [[nodiscard]] std::optional<GlanceRead> read(SuiteApp app) const;
    [[nodiscard]] std::map<SuiteApp, GlanceRead> readAll() const;
    // A file directly in the suite folder ("settings.json"): protected read, atomic replace.
    [[nodiscard]] kestrow::Result<std::string> readFile(const std::string& name, std::size_t limit) const;
    kestrow::Status writeFile(const std::string& name, std::string_view bytes) const;
    void removeStaleTemporaryFiles() const;

private:
    OpenSuiteFolder(SuiteFolder folder, int folderFd, int glancesFd);
    static kestrow::Result<OpenSuiteFolder> openOrPrepare(const SuiteFolder& folder, bool create);
    void close();

    SuiteFolder folder_;
    int folderFd_ = -1;
    int glancesFd_ = -1;
    mutable std::unique_ptr<kestrow::SwappedFile> record_;  // made at the first write
};

struct GlanceStore {
    SuiteFolder folder;

    static constexpr std::size_t readLimit = GlanceCodec::maxBytes + 1;  // enough to tell "too long"

    // Encodes and replaces this application's record atomically; an error text on failure.
    kestrow::Status write(const GlanceRecord& record) const;
    [[nodiscard]] std::map<SuiteApp, GlanceRead> readAll() const;
    [[nodiscard]] std::optional<GlanceRead> read(SuiteApp app) const;
    [[nodiscard]] static kestrow::Result<std::string> safeRead(const std::string& path, std::size_t limit) {
        return kestrow::safeRead(path, limit);
    }
};

struct PublishSchedule {
    std::optional<GlanceRecord> lastWritten;

    // A changed readout is due at once; an unchanged one at half its lifetime; any readout when the
    // clock now reads earlier than the last write (it was set back).
    [[nodiscard]] bool isDue(const GlanceRecord& record, double now) const;
    void didWrite(const GlanceRecord& record) { lastWritten = record; }
    void forceNext() { lastWritten.reset(); }
};

}  // namespace kestrow::suite
