// User defaults: small settings of one application (or one named domain) kept by the system between
// launches. macOS keeps them in NSUserDefaults; Linux in one JSON file per domain under
// $XDG_CONFIG_HOME/kestrow/; tests in memory. Values are JSON values; a value of the wrong kind reads
// as absent, so callers fall back to their defaults.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Json.hpp"
#include "Status.hpp"

namespace kestrow {

class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    virtual std::optional<JsonValue> value(const std::string& key) const = 0;
    virtual Status set(const std::string& key, const JsonValue& value) = 0;
    virtual Status remove(const std::string& key) = 0;

    // A JSON boolean (or the integers 0 and 1, as `defaults write … -int` leaves them); else none.
    std::optional<bool> boolean(const std::string& key) const;
    // An integer or a real number, never a boolean; else none.
    std::optional<double> number(const std::string& key) const;

    // The application's own domain: the standard user defaults on macOS, the file named by
    // `applicationDomain` on Linux.
    static std::unique_ptr<UserDefaults> standard(const std::string& applicationDomain);
    // A separate domain (a suite on macOS); none when it cannot be opened.
    static std::unique_ptr<UserDefaults> named(const std::string& domain);
    // A domain name that is safe as a file name: not empty, no "/", no leading ".", at most 200 bytes.
    static bool isUsableDomain(const std::string& domain);
};

class InMemoryUserDefaults final : public UserDefaults {
public:
    std::optional<JsonValue> value(const std::string& key) const override;
    Status set(const std::string& key, const JsonValue& value) override;
    Status remove(const std::string& key) override;

private:
    std::map<std::string, JsonValue> values_;
};

// One JSON object in "<folder>/<domain>.json", read afresh on every access (so two processes of the
// same domain see each other's changes) with the protected read, and replaced atomically with
// permissions 0600 on every change. A missing, refused or unparseable file reads as empty.
class FileUserDefaults final : public UserDefaults {
public:
    static constexpr std::size_t readLimit = 1 << 20;

    FileUserDefaults(std::string folder, const std::string& domain);

    std::optional<JsonValue> value(const std::string& key) const override;
    Status set(const std::string& key, const JsonValue& value) override;
    Status remove(const std::string& key) override;

    const std::string& path() const { return path_; }

    // $XDG_CONFIG_HOME/kestrow when that variable holds an absolute path, else ~/.config/kestrow.
    static std::string defaultFolder();

private:
    // The file as it stood when it was last read: its identity, size and change times.
    struct Stamp {
        unsigned long long device = 0, inode = 0;
        long long size = 0, modifiedSeconds = 0, modifiedNanoseconds = 0, changedSeconds = 0, changedNanoseconds = 0;
        bool operator==(const Stamp&) const = default;
    };
    // None when the path is missing or not a plain file. (The change times' fields differ by platform.)
    static std::optional<Stamp> stampOf(const std::string& path);

    // None when the file is missing or holds no object. Shared, so that a question copies nothing.
    std::shared_ptr<const JsonObject> load() const;
    JsonObject loadCopy() const;
    Status store(const JsonObject& object);

    std::string folder_;
    std::string path_;
    // Settings are asked for far more often than they change: the parsed file is kept and read
    // again only when a stat shows that the file was replaced or written since.
    mutable std::mutex cacheMutex_;
    mutable std::optional<std::pair<Stamp, std::shared_ptr<const JsonObject>>> cache_;
};

}  // namespace kestrow
