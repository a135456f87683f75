// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/root_path.h>

namespace Zorbe::Table {

/// Connects to the writer of the table without waiting. Returns a non-blocking descriptor, which
/// the caller owns, or -1 when there is no writer; one that is stopped and whose queue of pending
/// connections is full counts as none. Throws Brask::RuntimeException like Util::socket.
int connectToWriter(Brask::Platform::DebugHandler& handler, const RootPath& root);

/// Ends the connection of a reader, whose descriptor is closed next: the reader reads an end of
/// file. Without this a report that the writer has not read would make it ECONNRESET, which the
/// reader logs as a failure; see unix(7).
void endConnection(int fd) noexcept;

/// The same for the connections that were not accepted from the listening socket, which does not
/// block.
void endPendingConnections(int listening) noexcept;

/// In a child process after fork(2): closes what the descriptor refers to and keeps its number in
/// use, so that a later close closes nothing else. -1 is ignored.
void releaseInChild(int fd) noexcept;

}  // namespace Zorbe::Table
