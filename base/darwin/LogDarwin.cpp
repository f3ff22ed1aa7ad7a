#include "../Log.hpp"

#include <os/log.h>

#include <mutex>
#include <string>
#include <unordered_map>

namespace kestrow::log {

namespace {

os_log_t handleFor(std::string_view category) {
    static std::mutex mutex;
    static std::unordered_map<std::string, os_log_t> handles;
    std::lock_guard lock(mutex);
    auto [it, inserted] = handles.try_emplace(std::string(category), nullptr);
    if (inserted) it->second = os_log_create("com.kestrow.brimlet", it->first.c_str());
    return it->second;
}

}  // namespace

void write(Level level, std::string_view category, std::string_view message) {
    const std::string text(message);
    const os_log_type_t type = level == Level::error ? OS_LOG_TYPE_ERROR
                               : level == Level::debug ? OS_LOG_TYPE_DEBUG
                                                       : OS_LOG_TYPE_DEFAULT;
    os_log_with_type(handleFor(category), type, "%{public}s", text.c_str());
}

}  // namespace kestrow::log
