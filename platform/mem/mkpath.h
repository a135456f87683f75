// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#pragma GCC visibility push(default)

namespace Mem {

/// Creates the directory `path` with every missing component, each with exactly
/// `mode` regardless of the umask. A directory that is already there is success and
/// keeps its mode.
///
/// Safe against other processes that create, or remove, parts of the same path at the same
/// time: it begins again, a bounded number of times. Waits, for a second or two at most, for
/// a directory that another process has just made and not yet opened with chmod(2).
///
/// Links in the path are followed. Between making a directory and changing its mode no link is:
/// what another process puts into its place keeps its mode.
///
/// Returns 0, or -1 with `errno` set: ENOTDIR when a component exists and is not
/// a directory, otherwise the error of mkdir(2) or chmod(2).
int mkpath(const std::string& path, unsigned mode);

}  // namespace Mem

#pragma GCC visibility pop
