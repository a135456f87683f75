// SPDX-License-Identifier: MIT
//
// How figures are written: three digits, and a unit that fits.
#pragma once

#include <string>
#include <vector>

#include "harness/results.h"

namespace Bench {

/// A number with three significant digits.
std::string threeDigits(double number);

/// "8.31 us (8.2 to 8.4)", or "-" for a row that was skipped.
std::string valueText(const Row& row);

/// "1.04 (1.03 to 1.06)", or nothing for a row without a ratio.
std::string ratioText(const Row& row);

/// The rows of one group, in order.
std::vector<Row> rowsOf(const std::vector<Row>& rows, const std::string& group);

/// The names of all groups, in the order of their first rows.
std::vector<std::string> groupsOf(const std::vector<Row>& rows);

/// The cells of a table: one line per row, the first being the heads of the columns.
using Table = std::vector<std::vector<std::string>>;
Table tableOf(const std::vector<Row>& rows);

}  // namespace Bench
