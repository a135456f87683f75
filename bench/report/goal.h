// SPDX-License-Identifier: MIT
//
// The goal of a row, and whether it was met.
#pragma once

#include <string>
#include <vector>

#include "harness/results.h"
#include "report/format.h"

namespace Bench {

/// Whether the row's median meets its goal: "<= 1.05", ">= 40 GB/s", "= 0". A goal without a unit
/// is one of the ratio where the row has a ratio. Throws std::runtime_error for a goal that
/// cannot be read.
bool isMet(const Row& row);

/// Every row with a goal: where it is from, the goal, the figure, met or missed. `titles` are
/// what the first column says of each group, by its name.
Table summaryOf(const std::vector<Row>& rows,
                const std::vector<std::pair<std::string, std::string>>& titles);

/// "12 of 15 goals were met."
std::string summaryText(const std::vector<Row>& rows);

}  // namespace Bench
