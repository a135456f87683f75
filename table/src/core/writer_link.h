// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/root_path.h>

namespace Zorbe::Table {

/// Connects to the writer of the table without waiting. Returns a non-blocking descriptor, which
/// the caller owns, or -1 when there is no writer; one that is stopped and whose queue of pending
/// connections is full counts as none. Throws Brask::RuntimeException like Util::socket.
int connectToWriter(Brask::Platform::DebugHandler& handler, const RootPath& root);

/// In a child process after fork(2): gives up what the descriptor stands for, and keeps the
/// number taken, so that a later close closes nothing else. -1 is ignored.
void releaseInChild(int fd) noexcept;

}  // namespace Zorbe::Table
