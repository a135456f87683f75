// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "harness/results.h"

namespace Bench {

/// A picture in SVG: one bar per row, its length the median, its whisker the interquartile range.
std::string barPlot(const std::string& title, const std::vector<Row>& rows);

}  // namespace Bench
