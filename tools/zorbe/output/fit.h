// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "output/columns.h"

namespace Zorbe::Tool {

/// The columns of the terminal that `fd` is, by default standard output; none when it is none, or
/// has no size.
std::optional<std::size_t> terminalWidth(int fd = 1);

/// `text` in at most `width` columns; what is too long ends with "...".
std::string shortened(const std::string& text, std::size_t width);

using Rows = std::vector<std::vector<Cell>>;

/// Makes rows of equal length fit `width`: removes the columns that `expendable` names, one after
/// the other, and then shortens the first one.
void fit(Rows& rows, std::vector<std::size_t> expendable, std::size_t width);

}  // namespace Zorbe::Tool
