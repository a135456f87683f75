// SPDX-License-Identifier: MIT
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "commands/commands.h"
#include "commands/header_facts.h"
#include "output/columns.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

std::string orDash(const std::string& text) {
  return text.empty() ? "-" : printable(text);
}

Cell writerCell(const Table& table) {
  if (!table.writer) return {"none", Tone::kWarning};
  return {table.writer->state(), table.writer->stopped ? Tone::kBad : Tone::kGood};
}

// What the header says of a table that has one: records, readers that are behind, and by how much.
std::vector<Cell> headerCells(const Table& table, const HeaderReading& reading) {
  std::string records = "-", behind = "-", lag = "-";
  if (reading.header && reading.header->records) records = std::to_string(*reading.header->records);
  if (reading.header && isServed(table)) {
    const ReaderSummary readers = summarize(*reading.header);
    behind = std::to_string(readers.behind);
    lag = std::to_string(readers.lagRecords);
  }
  return {{records, Tone::kPlain, true}, {behind, Tone::kPlain, true}, {lag, Tone::kPlain, true}};
}

std::vector<Cell> row(const Table& table, const HeaderReading& reading) {
  const Writer writer = table.writer.value_or(Writer{});
  std::vector<Cell> cells{
      {word(table.name)},
      writerCell(table),
      {writer.pids.empty() ? "-" : std::to_string(writer.pids.front()), Tone::kPlain, true},
      {writer.executable.empty() ? "-" : word(writer.executable)},
      {std::to_string(table.sockets.connections), Tone::kPlain, true},
      {table.fenix == 0 ? "-" : std::to_string(table.fenix), Tone::kPlain, true},
      {table.corrupt ? "yes" : "no", table.corrupt ? Tone::kBad : Tone::kPlain},
      {std::to_string(table.storage()), Tone::kPlain, true},
  };
  for (Cell& cell : headerCells(table, reading)) cells.push_back(std::move(cell));
  cells.push_back({orDash(table.lastOwner)});
  return cells;
}

std::vector<Cell> heading() {
  std::vector<Cell> cells;
  const std::pair<const char*, bool> titles[] = {
      {"TABLE", false},  {"WRITER", false}, {"PID", true},      {"EXECUTABLE", false},
      {"CONNS", true},   {"FENIX", true},   {"CORRUPT", false}, {"BYTES", true},
      {"RECORDS", true}, {"BEHIND", true},  {"LAG", true},      {"LAST OWNER", false}};
  for (const auto& [title, number] : titles) cells.push_back({title, Tone::kHeading, number});
  return cells;
}

}  // namespace

int list(Context& context) {
  const Survey found = survey(context.handler);
  const Listing& base = found.base.directory;
  if (!base.present && base.error != 0) {
    throw std::system_error(base.error, std::generic_category(), found.base.path);
  }
  const HeaderReader headers;
  if (context.json) {
    Json tables = Json::array();
    for (const Table* table : found.tables()) {
      Json json = toJson(*table);
      json["header"] = toJson(*table, headers.read(*table));
      tables.push_back(std::move(json));
    }
    print({{"base", utf8(found.base.path)}, {"tables", tables}});
    return kYes;
  }
  Columns columns;
  columns.add(heading());
  for (const Table* table : found.tables()) {
    columns.add(row(*table, headers.read(*table)));
  }
  columns.print(std::cout, context.coloured);
  return kYes;
}

}  // namespace Zorbe::Tool
