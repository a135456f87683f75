// SPDX-License-Identifier: MIT
#include "report/goal.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace Bench {

namespace {

struct Goal {
  std::string relation;
  double limit = 0;
  std::string unit;  // empty for a ratio, and for the unit of the row
};

Goal goalOf(const Row& row) {
  Goal goal;
  std::istringstream in(row.goal);
  if (!(in >> goal.relation >> goal.limit)) throw std::runtime_error("no goal: " + row.goal);
  std::getline(in >> std::ws, goal.unit);
  return goal;
}

bool isOfRatio(const Row& row, const Goal& goal) {
  return !row.baseline.empty() && goal.unit.empty();
}

std::vector<Row> withGoal(std::vector<Row> rows) {
  rows.erase(
      std::remove_if(rows.begin(), rows.end(), [](const Row& row) { return row.goal.empty(); }),
      rows.end());
  return rows;
}

std::string titleOf(const std::string& group,
                    const std::vector<std::pair<std::string, std::string>>& titles) {
  for (const auto& [name, title] : titles) {
    if (name == group) return title;
  }
  return group;
}

}  // namespace

bool isMet(const Row& row) {
  const Goal goal = goalOf(row);
  if (!goal.unit.empty() && goal.unit != row.unit)
    throw std::runtime_error("a goal in " + goal.unit + " for a value in " + row.unit);
  const double figure = isOfRatio(row, goal) ? row.ratio.median : row.value.median;
  if (goal.relation == "<=") return figure <= goal.limit;
  if (goal.relation == ">=") return figure >= goal.limit;
  if (goal.relation == "=") return figure == goal.limit;
  throw std::runtime_error("no relation: " + row.goal);
}

Table summaryOf(const std::vector<Row>& rows,
                const std::vector<std::pair<std::string, std::string>>& titles) {
  Table table{{"measured", "subject", "load", "goal", "figure", ""}};
  for (const Row& row : withGoal(rows)) {
    const bool isRatio = isOfRatio(row, goalOf(row));
    table.push_back({titleOf(row.group, titles), row.subject, row.load,
                     (isRatio ? "ratio to " + row.baseline + " " : "") + row.goal,
                     isRatio ? ratioText(row) : valueText(row), isMet(row) ? "met" : "**missed**"});
  }
  return table;
}

std::string summaryText(const std::vector<Row>& rows) {
  const std::vector<Row> judged = withGoal(rows);
  const auto met = std::count_if(judged.begin(), judged.end(), isMet);
  return std::to_string(met) + " of " + std::to_string(judged.size()) + " goals were met.";
}

}  // namespace Bench
