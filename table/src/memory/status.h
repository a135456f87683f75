// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/options.h>

#include <optional>
#include <vector>

#include "memory/layout.h"

namespace Zorbe::Table {

/// Connections that a table has room to tell of; of the others only the number is known.
inline constexpr size_t kMaxPeers = 250;

/// The writer: replaces what the header says about its readers. Two copies and a selector: the
/// one that readers look at is never written.
void storeStatus(SlotsHeader& header, const Status& status);

/// Any process: nothing when the writer replaces it faster than it can be read, which none does.
std::optional<Status> loadStatus(const SlotsHeader& header);

}  // namespace Zorbe::Table
