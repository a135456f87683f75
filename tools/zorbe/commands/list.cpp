// SPDX-License-Identifier: MIT
#include <fnmatch.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands/header_facts.h"
#include "commands/items.h"
#include "commands/monitoring_commands.h"
#include "output/columns.h"
#include "output/fit.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

// What a narrow terminal does not show: the last owner first, the state of the writer last.
const std::vector<std::size_t> kExpendable{kLastOwner, kFenix,       kExecutable, kBytes,
                                           kLag,       kPid,         kRecords,    kCorrupt,
                                           kBehind,    kConnections, kWriter};

bool isWanted(const Item& item, const ListOptions& options) {
  const auto hasState = [&](const std::string& state) {
    if (state == "corrupt") return item.table->corrupt;
    if (state == "behind") return item.readers && item.readers->behind != 0;
    return state == writerState(*item.table);
  };
  const auto matches = [&](const std::string& pattern) {
    return fnmatch(pattern.c_str(), item.table->name.c_str(), 0) == 0;
  };
  const auto& states = options.states;
  const auto& patterns = options.patterns;
  return (states.empty() || std::any_of(states.begin(), states.end(), hasState)) &&
         (patterns.empty() || std::any_of(patterns.begin(), patterns.end(), matches));
}

// Tables that are equal stay in the order of their names.
std::vector<Item> wantedItems(const Survey& survey, const ListOptions& options) {
  std::vector<Item> items = itemsOf(survey, HeaderReader());
  const auto unwanted = std::remove_if(items.begin(), items.end(),
                                       [&](const Item& item) { return !isWanted(item, options); });
  items.erase(unwanted, items.end());
  std::stable_sort(items.begin(), items.end(),
                   [&](const Item& a, const Item& b) { return isBefore(a, b, options.sort); });
  if (options.reverse) std::reverse(items.begin(), items.end());
  return items;
}

Json toJson(const Survey& survey, const std::vector<Item>& items) {
  Json tables = Json::array();
  for (const Item& item : items) {
    Json json = toJson(*item.table);
    json["header"] = toJson(*item.table, item.reading);
    tables.push_back(std::move(json));
  }
  return {{"base", utf8(survey.base.path)}, {"tables", tables}};
}

Columns columnsOf(const std::vector<Item>& items, std::optional<std::size_t> width) {
  Rows rows(1);
  for (const ItemColumn& column : itemColumns()) {
    rows[0].push_back({column.title, Tone::kHeading, column.number});
  }
  for (const Item& item : items) {
    rows.emplace_back();
    for (const ItemColumn& column : itemColumns()) rows.back().push_back(column.cell(item));
  }
  if (width) fit(rows, kExpendable, *width);
  Columns columns;
  for (auto& row : rows) columns.add(std::move(row));
  return columns;
}

}  // namespace

int list(Context& context, const ListOptions& options) {
  const Survey found = survey(context.handler);
  const std::vector<Item> items = wantedItems(found, options);
  if (context.json) {
    print(toJson(found, items));
  } else {
    columnsOf(items, options.wide ? std::nullopt : terminalWidth())
        .print(std::cout, context.coloured);
  }
  return kYes;
}

}  // namespace Zorbe::Tool
