#include "TerminalQuit.hpp"

#include <algorithm>

#include "core/common/ByteFormat.hpp"

namespace brimlet::TerminalQuit {

namespace {

// Linux's kernel threads all descend from kthreadd (pid 2); launchd is pid 1 on the Mac.
bool isSystem(std::int32_t pid, const ProcessIdentity& info, const SessionCheck& inOwnSession) {
    if (pid <= 2 || info.ppid == 2) return true;
    return info.uid == 0 && !(inOwnSession && inOwnSession(pid));
}

}  // namespace

std::vector<std::int32_t> protectedChain(std::int32_t ownPid, const ProcessLookup& lookup) {
    std::vector<std::int32_t> chain{ownPid};
    std::int32_t pid = ownPid;
    for (int step = 0; step < 64; ++step) {
        const auto info = lookup(pid);
        if (!info || info->ppid <= 1) break;
        if (std::find(chain.begin(), chain.end(), info->ppid) != chain.end()) break;
        chain.push_back(info->ppid);
        pid = info->ppid;
    }
    return chain;
}

Plan plan(const AppGroup& group, std::uint32_t ownUid, const std::vector<std::int32_t>& protectedPids,
          const ProcessLookup& lookup, const SessionCheck& inOwnSession) {
    Plan made;
    for (const std::int32_t pid : group.pids) {
        if (std::find(protectedPids.begin(), protectedPids.end(), pid) != protectedPids.end())
            return Plan{{}, std::string(ownTerminalHelp)};
    }
    for (const std::int32_t pid : group.pids) {
        const auto info = lookup(pid);
        if (!info || isSystem(pid, *info, inOwnSession) || info->uid != ownUid) continue;
        made.pids.push_back(pid);
    }
    if (made.pids.empty()) made.refusal = std::string(systemHelp);
    return made;
}

std::string confirmation(const AppGroup& group, const Plan& plan) {
    const std::string count =
        plan.pids.size() == 1 ? "Its process" : "Its " + std::to_string(plan.pids.size()) + " processes";
    return group.name + " is using " + ByteFormat::memory(group.footprint) + ". " + count +
           " will be asked to quit normally (SIGTERM), and it may ask you to save your work. Nothing is forced.";
}

std::size_t quit(const AppGroup& group, std::uint32_t ownUid, const std::vector<std::int32_t>& protectedPids,
                 const ProcessLookup& lookup, const SessionCheck& inOwnSession,
                 const std::function<bool(std::int32_t pid)>& terminate) {
    std::size_t delivered = 0;
    for (const std::int32_t pid : plan(group, ownUid, protectedPids, lookup, inOwnSession).pids)
        if (terminate(pid)) ++delivered;
    return delivered;
}

}  // namespace brimlet::TerminalQuit
