// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>
#include <sys/types.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Zorbe::Tool {

/// The processes that hold each of these sockets, lowest pid first. One pass over all
/// descriptors of all processes, however many sockets are asked for; none when it is none. The
/// descriptors of other users' processes are visible to root alone.
std::map<ino_t, std::vector<pid_t>> findHolders(const std::set<ino_t>& sockets);

/// True when the process was stopped, by a signal or a debugger.
bool isStopped(pid_t pid);

/// SHMEM_ROOT as the process was started with, made absolute; empty when it had none, or may not be
/// read by this user.
std::string baseOfProcess(Brask::Platform::DebugHandler& handler, pid_t pid);

/// The directories of the tables' files that the process shares for writing; none when this user
/// may not read them.
std::set<std::string> directoriesWrittenBy(Brask::Platform::DebugHandler& handler, pid_t pid);

}  // namespace Zorbe::Tool
