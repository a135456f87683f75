// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <map>
#include <set>
#include <vector>

namespace Zorbe::Tool {

/// The processes that hold each of these sockets, lowest pid first. One pass over all
/// descriptors of all processes, however many sockets are asked for; none when it is none. The
/// descriptors of other users' processes are visible to root alone.
std::map<ino_t, std::vector<pid_t>> findHolders(const std::set<ino_t>& sockets);

/// True when the process was stopped, by a signal or a debugger.
bool isStopped(pid_t pid);

}  // namespace Zorbe::Tool
