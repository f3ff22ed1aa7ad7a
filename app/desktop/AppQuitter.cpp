#include "app/desktop/AppQuitter.hpp"

#include "base/Files.hpp"
#include "core/common/ByteFormat.hpp"

namespace brimlet {

std::optional<RunningApplication> AppQuitter::runningApplication(const AppGroup& group,
                                                                 const std::vector<RunningApplication>& running) {
    if (!group.bundlePath) return std::nullopt;
    const std::string wanted = kestrow::standardizePath(*group.bundlePath);
    // An application may run from another path than the one its bundle URL names (Safari from a
    // Cryptex volume): the real paths then agree where the written ones do not.
    std::optional<std::optional<std::string>> wantedReal;
    for (const RunningApplication& application : running) {
        if (!application.bundlePath) continue;
        if (kestrow::standardizePath(*application.bundlePath) == wanted) return application;
        if (!wantedReal) wantedReal = kestrow::canonicalizePath(wanted);
        if (*wantedReal && kestrow::canonicalizePath(*application.bundlePath) == **wantedReal) return application;
    }
    return std::nullopt;
}

std::optional<RunningApplication> AppQuitter::quitTarget(const AppGroup& group,
                                                         const std::vector<RunningApplication>& running,
                                                         std::int32_t ownProcessIdentifier) {
    auto target = runningApplication(group, running);
    // The first match decides; when that is this program, nothing is asked at all.
    if (!target || target->processIdentifier == ownProcessIdentifier) return std::nullopt;
    return target;
}

bool AppQuitter::quit(const AppGroup& group, const std::vector<RunningApplication>& running,
                      std::int32_t ownProcessIdentifier,
                      const std::function<void(const RunningApplication&)>& terminate) {
    const auto target = quitTarget(group, running, ownProcessIdentifier);
    if (!target) return false;
    terminate(*target);
    return true;
}

std::string AppQuitter::confirmation(std::string_view name, std::string_view memoryText) {
    return std::string(name) + " is using " + std::string(memoryText) +
           ". It will be asked to quit normally, like choosing Quit from its menu, and may ask you to save your work.";
}

std::string AppQuitter::confirmation(const AppGroup& group) {
    return confirmation(group.name, ByteFormat::memory(group.footprint));
}

}  // namespace brimlet
