// Asking an application to quit from the terminal front end, where there is no system list of
// running applications to ask: each of the group's processes that belongs to this user gets the
// polite termination signal (SIGTERM), the one a desktop's own "Quit" or a shutdown sends first.
// Nothing is ever killed outright. Never offered: this program, the terminal it runs in (every
// process above it: shell, terminal emulator, tmux, sshd), and system processes (the kernel's, init,
// root's and other users').
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/monitoring/MonitorTypes.hpp"
#include "core/monitoring/ProcessReader.hpp"

namespace brimlet::TerminalQuit {

inline constexpr std::string_view ownTerminalHelp =
    "Kestrow Brimlet and the terminal it runs in are never asked to quit from here.";
inline constexpr std::string_view systemHelp = "System processes and other users' processes are never asked to quit.";

using ProcessLookup = std::function<std::optional<ProcessIdentity>(std::int32_t pid)>;

// This process and everything above it, nearest first, up to (not including) init; at most 64 steps,
// so a loop in hostile or racing data cannot hang the caller.
std::vector<std::int32_t> protectedChain(std::int32_t ownPid, const ProcessLookup& lookup);

struct Plan {
    std::vector<std::int32_t> pids;  // the processes to signal, in the group's order
    std::string refusal;             // why nothing is offered; empty when `pids` is not empty
    bool allowed() const { return !pids.empty(); }
    bool operator==(const Plan&) const = default;
};

// Whether a process belongs to this program's login session (getsid): run as root, only root's
// processes of the user's own session count as the user's; every other root process is the system's.
using SessionCheck = std::function<bool(std::int32_t pid)>;

// Which of the group's processes may be asked: a group holding this program or the terminal it
// runs in is refused whole; of the others, only processes that still exist, belong to `ownUid`
// and are not system processes (pid 0 to 2, children of the kernel's thread parent, root's outside
// this session).
Plan plan(const AppGroup& group, std::uint32_t ownUid, const std::vector<std::int32_t>& protectedPids,
          const ProcessLookup& lookup, const SessionCheck& inOwnSession = {});

// The confirmation: "Firefox is using 1.25 GB. Its 3 processes will be asked to quit normally
// (SIGTERM), and it may ask you to save your work. Nothing is forced."
std::string confirmation(const AppGroup& group, const Plan& plan);

// Sends SIGTERM through `signal` (the platform's kill) to each planned process; how many were
// delivered. The plan is made again right before, so a process that ended or changed hands in
// between is passed over.
std::size_t quit(const AppGroup& group, std::uint32_t ownUid, const std::vector<std::int32_t>& protectedPids,
                 const ProcessLookup& lookup, const SessionCheck& inOwnSession,
                 const std::function<bool(std::int32_t pid)>& terminate);

}  // namespace brimlet::TerminalQuit
