// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <vector>

#include "host/sockets.h"
#include "host/table.h"

namespace Zorbe::Tool {

/// Completes tables, whose directories were read, by their sockets and their writers. One pass over
/// the processes for all tables.
void addWriters(Brask::Platform::DebugHandler& handler, const SocketsByName& sockets,
                const std::vector<Table*>& tables);

}  // namespace Zorbe::Tool
