// SPDX-License-Identifier: MIT
//
// A connection to the socket that is a table's writer lock, as both reader state machines make
// it. Their messages differ: each passes the name under which it logs.
#pragma once

#include <brask/platform.h>
#include <zorbe/root_path.h>

namespace Zorbe {

/// Opens the socket. On failure logs the details and throws Brask::RuntimeException, whose text
/// is only `where`, the step that failed, "failed" and `tail`. After a failing setsockopt(2) the
/// descriptor stays open.
int openWriterConnection(Brask::Platform::DebugHandler& handler, const char* where,
                         const RootPath& rootPath, const char* tail);

/// One attempt to reach the writer: 0, or the errno of connect(2).
int connectToWriter(Brask::Platform::DebugHandler& handler, int fd, const RootPath& rootPath);

/// Closes the descriptor; a failure is logged.
void closeWriterConnection(Brask::Platform::DebugHandler& handler, const char* where, int fd,
                           const RootPath& rootPath);

}  // namespace Zorbe
