// SPDX-License-Identifier: MIT
#include "status/status.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "output/fit.h"
#include "output/text.h"

namespace Zorbe::Relay {

void printStatus(const std::vector<Row>& rows, bool isWide) {
  Tool::Rows cells(1);
  for (const RowColumn& column : rowColumns()) {
    cells[0].push_back({column.title, Tool::Tone::kHeading, column.isNumber});
  }
  for (const Row& row : rows) {
    cells.emplace_back();
    for (const RowColumn& column : rowColumns()) cells.back().push_back(column.cell(row));
  }
  const auto width = isWide ? std::nullopt : Tool::terminalWidth();
  if (width) Tool::fit(cells, expendableColumns(), *width);
  Tool::Columns columns;
  for (auto& row : cells) columns.add(std::move(row));
  columns.print(std::cout, Tool::wantsColour());
}

void printJson(const std::vector<Row>& rows, const std::string& server) {
  Tool::Json tables = Tool::Json::array();
  for (const Row& row : rows) tables.push_back(toJson(row));
  Tool::print(Tool::Json{{"server", Tool::utf8(server)}, {"tables", tables}});
}

}  // namespace Zorbe::Relay
