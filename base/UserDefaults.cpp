#include "UserDefaults.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "Files.hpp"

namespace kestrow {

std::optional<bool> UserDefaults::boolean(const std::string& key) const {
    const std::optional<JsonValue> v = value(key);
    if (!v) return std::nullopt;
    if (const bool* b = v->asBool()) return *b;
    if (const JsonNumber* n = v->asNumber()) {
        const std::optional<std::int64_t> i = n->asSigned();
        if (i && (*i == 0 || *i == 1)) return *i == 1;
    }
    return std::nullopt;
}

std::optional<double> UserDefaults::number(const std::string& key) const {
    const std::optional<JsonValue> v = value(key);
    if (!v) return std::nullopt;
    if (const JsonNumber* n = v->asNumber()) return n->asDouble();
    return std::nullopt;
}

bool UserDefaults::isUsableDomain(const std::string& domain) {
    return !domain.empty() && domain.size() <= 200 && domain.front() != '.' && domain.find('/') == std::string::npos &&
           domain.find('\0') == std::string::npos;
}

std::optional<JsonValue> InMemoryUserDefaults::value(const std::string& key) const {
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

Status InMemoryUserDefaults::set(const std::string& key, const JsonValue& value) {
    values_[key] = value;
    return Status::success();
}

Status InMemoryUserDefaults::remove(const std::string& key) {
    values_.erase(key);
    return Status::success();
}

FileUserDefaults::FileUserDefaults(std::string folder, const std::string& domain)
    : folder_(standardizePath(folder)),
      path_(folder_ + "/" + domain + ".json") {}

std::string FileUserDefaults::defaultFolder() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if (config && config[0] == '/') return standardizePath(std::string(config) + "/kestrow");
    const char* home = std::getenv("HOME");
    const std::string base = home && home[0] == '/' ? std::string(home) : realHomeFolder();
    return standardizePath(base + "/.config/kestrow");
}

std::shared_ptr<const JsonObject> FileUserDefaults::load() const {
    // Taken before the read: a change in between leaves a stamp that no longer matches, and the
    // next question reads the file again.
    const std::optional<Stamp> stamp = stampOf(path_);
    std::lock_guard lock(cacheMutex_);
    if (stamp && cache_ && cache_->first == *stamp) return cache_->second;
    cache_.reset();
    if (!stamp) return nullptr;  // missing, or not a plain file: nothing to read
    const Result<std::string> file = safeRead(path_, readLimit);
    if (file.failed()) return nullptr;
    auto parsed = parseJson(*file);
    JsonValue* value = parsed.ok() ? &*parsed : nullptr;
    if (!value || !value->asObject()) return nullptr;
    cache_.emplace(*stamp, std::make_shared<const JsonObject>(std::move(*value->asObject())));
    return cache_->second;
}

JsonObject FileUserDefaults::loadCopy() const {
    const std::shared_ptr<const JsonObject> object = load();
    return object ? *object : JsonObject();
}

Status FileUserDefaults::store(const JsonObject& object) {
    // Create the missing folders above the file, owner only.
    for (std::size_t slash = folder_.find('/', 1);; slash = folder_.find('/', slash + 1)) {
        const std::string part = slash == std::string::npos ? folder_ : folder_.substr(0, slash);
        if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST)
            return Status::failure("cannot create " + part + " (errno " + std::to_string(errno) + ")");
        if (slash == std::string::npos) break;
    }
    const Result<std::string> bytes = writeJson(JsonValue(object), JsonWriteOptions{true, false});
    if (bytes.failed()) return Status::failure("cannot encode " + path_);
    return writeAtomically(path_, *bytes + "\n", 0600);
}

std::optional<JsonValue> FileUserDefaults::value(const std::string& key) const {
    const std::shared_ptr<const JsonObject> object = load();
    if (!object) return std::nullopt;
    auto it = object->find(key);
    if (it == object->end()) return std::nullopt;
    return it->second;
}

Status FileUserDefaults::set(const std::string& key, const JsonValue& value) {
    JsonObject object = loadCopy();
    object[key] = value;
    return store(object);
}

Status FileUserDefaults::remove(const std::string& key) {
    JsonObject object = loadCopy();
    if (object.erase(key) == 0) return Status::success();
    return store(object);
}

}  // namespace kestrow
