#include "../Log.hpp"

#include <CoreFoundation/CoreFoundation.h>
#include <os/log.h>

#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace kestrow::log {

namespace {

// The suite library logs under the vendor's reverse-DNS prefix followed by ".kit", the same in
// every member app, so that one predicate in Console follows the suite across all of them.
constexpr const char* suiteKitSubsystem = "com.kestrow.kit";
// A process started outside its bundle (the snapshot command from a build folder) has no bundle
// identifier; its lines still belong to this application.
constexpr const char* applicationFallback = "com.kestrow.brimlet";

std::string applicationSubsystem() {
    CFBundleRef bundle = CFBundleGetMainBundle();  // not owned: the Get rule
    CFStringRef identifier = bundle != nullptr ? CFBundleGetIdentifier(bundle) : nullptr;
    char buffer[256];
    if (identifier != nullptr && CFStringGetCString(identifier, buffer, sizeof buffer, kCFStringEncodingUTF8))
        return buffer;
    return applicationFallback;
}

os_log_t handleFor(Subsystem subsystem, std::string_view category) {
    static std::mutex mutex;
    static std::map<std::pair<Subsystem, std::string>, os_log_t> handles;  // kept for the process's life
    static const std::string application = applicationSubsystem();
    std::lock_guard lock(mutex);
    auto [it, inserted] = handles.try_emplace({subsystem, std::string(category)}, nullptr);
    if (inserted) {
        const char* name = subsystem == Subsystem::suiteKit ? suiteKitSubsystem : application.c_str();
        it->second = os_log_create(name, it->first.second.c_str());
    }
    return it->second;
}

}  // namespace

void write(Subsystem subsystem, Level level, std::string_view category, std::string_view message) {
    const std::string text(message);
    const os_log_type_t type = level == Level::error   ? OS_LOG_TYPE_ERROR
                               : level == Level::debug ? OS_LOG_TYPE_DEBUG
                                                       : OS_LOG_TYPE_DEFAULT;
    os_log_with_type(handleFor(subsystem, category), type, "%{public}s", text.c_str());
}

}  // namespace kestrow::log
