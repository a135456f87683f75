// SPDX-License-Identifier: MIT
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "commands.h"
#include "json.h"
#include "paint.h"
#include "text.h"

namespace Zorbe::Tool {

namespace {

std::string orDash(const std::string& text) {
  return text.empty() ? "-" : printable(text);
}

Cell writerCell(const Table& table) {
  if (!table.writer) return {"none", Tone::warning};
  return {table.writer->state(), table.writer->stopped ? Tone::bad : Tone::good};
}

std::vector<Cell> row(const Table& table) {
  const Writer writer = table.writer.value_or(Writer{});
  return {{word(table.name)},
          writerCell(table),
          {writer.pids.empty() ? "-" : std::to_string(writer.pids.front()), Tone::plain, true},
          {writer.executable.empty() ? "-" : word(writer.executable)},
          {std::to_string(table.sockets.connections), Tone::plain, true},
          {table.fenix == 0 ? "-" : std::to_string(table.fenix), Tone::plain, true},
          {table.corrupt ? "yes" : "no", table.corrupt ? Tone::bad : Tone::plain},
          {std::to_string(table.storage()), Tone::plain, true},
          {orDash(table.lastOwner)}};
}

std::vector<Cell> heading() {
  std::vector<Cell> cells;
  const std::pair<const char*, bool> titles[] = {
      {"TABLE", false}, {"WRITER", false},  {"PID", true},   {"EXECUTABLE", false}, {"CONNS", true},
      {"FENIX", true},  {"CORRUPT", false}, {"BYTES", true}, {"LAST OWNER", false}};
  for (const auto& [title, number] : titles) cells.push_back({title, Tone::heading, number});
  return cells;
}

}  // namespace

int list(Context& context) {
  const Survey found = survey(context.handler);
  const Listing& base = found.base.directory;
  if (!base.present && base.error != 0) {
    throw std::system_error(base.error, std::generic_category(), found.base.path);
  }
  if (context.json) {
    Json tables = Json::array();
    for (const Table* table : found.tables()) tables.push_back(toJson(*table));
    print({{"base", utf8(found.base.path)}, {"tables", tables}});
    return yes;
  }
  Columns columns;
  columns.add(heading());
  for (const Table* table : found.tables()) columns.add(row(*table));
  columns.print(std::cout, context.coloured);
  return yes;
}

}  // namespace Zorbe::Tool
