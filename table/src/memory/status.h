// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/options.h>

#include <optional>
#include <vector>

#include "memory/layout.h"

namespace Zorbe::Table {

/// The connections that a table has room for; of the others only the number is stored.
inline constexpr size_t kMaxPeers = 250;

/// The writer: replaces the status of its readers in the header. There are two copies and a
/// selector: the copy that is selected is never written. How often the table was continued is
/// counted by itself.
void storeStatus(SlotsHeader& header, const Status& status);

/// Any process. Nothing when the status is replaced faster than it can be read, which no writer
/// does.
std::optional<Status> loadStatus(const SlotsHeader& header);

}  // namespace Zorbe::Table
