// SPDX-License-Identifier: MIT
#include "report/format.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

namespace Bench {

namespace {

struct Scale {
  double divisor;
  std::string unit;
};

// Nanoseconds become what is easier to read.
Scale scaleOf(const Row& row) {
  if (row.unit.rfind("ns", 0) != 0) return {1.0, row.unit};
  const std::string rest = row.unit.substr(2);
  if (row.value.median >= 1e6) return {1e6, "ms" + rest};
  if (row.value.median >= 1e3) return {1e3, "us" + rest};
  return {1.0, row.unit};
}

std::string spreadText(const Spread& spread, double divisor, const std::string& unit) {
  return threeDigits(spread.median / divisor) + unit + " (" + threeDigits(spread.low / divisor) +
         " to " + threeDigits(spread.high / divisor) + ")";
}

}  // namespace

std::string threeDigits(double number) {
  if (number == 0 || !std::isfinite(number)) return number == 0 ? "0" : "-";
  const int before = static_cast<int>(std::floor(std::log10(std::fabs(number)))) + 1;
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", std::max(0, 3 - std::max(before, 1)), number);
  return text;
}

std::string valueText(const Row& row) {
  if (row.unit.empty()) return "-";
  const Scale scale = scaleOf(row);
  if (row.value.low == row.value.high) {
    return threeDigits(row.value.median / scale.divisor) + " " + scale.unit;
  }
  return spreadText(row.value, scale.divisor, " " + scale.unit);
}

std::string ratioText(const Row& row) {
  return row.baseline.empty() ? "" : spreadText(row.ratio, 1.0, "");
}

std::vector<Row> rowsOf(const std::vector<Row>& rows, const std::string& group) {
  std::vector<Row> found;
  std::copy_if(rows.begin(), rows.end(), std::back_inserter(found),
               [&](const Row& row) { return row.group == group; });
  return found;
}

std::vector<std::string> groupsOf(const std::vector<Row>& rows) {
  std::vector<std::string> groups;
  for (const Row& row : rows) {
    if (std::find(groups.begin(), groups.end(), row.group) == groups.end()) {
      groups.push_back(row.group);
    }
  }
  return groups;
}

Table tableOf(const std::vector<Row>& rows) {
  std::string baseline;
  bool goals = false;
  for (const Row& row : rows) {
    if (!row.baseline.empty()) baseline = row.baseline;
    goals = goals || !row.goal.empty();
  }
  Table table{{"subject", "load", "median (interquartile range)"}};
  if (!baseline.empty()) table.front().push_back("ratio to " + baseline);
  if (goals) table.front().push_back("goal");
  for (const Row& row : rows) {
    table.push_back({row.subject, row.load, valueText(row)});
    if (!baseline.empty()) table.back().push_back(ratioText(row));
    if (goals) table.back().push_back(row.goal);
  }
  return table;
}

}  // namespace Bench
