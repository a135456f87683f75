// SPDX-License-Identifier: MIT
#include <fnmatch.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "commands/header_facts.h"
#include "commands/monitoring_commands.h"
#include "output/columns.h"
#include "output/fit.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

struct Item {
  const Table* table;
  HeaderReading reading;
  std::optional<ReaderSummary> readers;

  std::optional<uint64_t> records() const {
    return reading.header ? reading.header->records : std::nullopt;
  }
};

std::string orDash(const std::string& text) {
  return text.empty() ? "-" : printable(text);
}

Cell number(const std::optional<uint64_t>& value) {
  return {value ? std::to_string(*value) : "-", Tone::kPlain, true};
}

const char* writerState(const Table& table) {
  return table.writer ? table.writer->state() : "none";
}

std::optional<uint64_t> pidOf(const Item& item) {
  const auto& writer = item.table->writer;
  if (!writer || writer->pids.empty()) return std::nullopt;
  return writer->pids.front();
}

std::optional<uint64_t> behind(const Item& item) {
  return item.readers ? std::optional(item.readers->behind) : std::nullopt;
}

std::optional<uint64_t> lag(const Item& item) {
  return item.readers ? std::optional(item.readers->lagRecords) : std::nullopt;
}

Cell name(const Item& item) {
  return {word(item.table->name)};
}

Cell writer(const Item& item) {
  const Table& table = *item.table;
  if (!table.writer) return {"none", Tone::kWarning};
  return {writerState(table), table.writer->stopped ? Tone::kBad : Tone::kGood};
}

Cell executable(const Item& item) {
  const auto& writer = item.table->writer;
  return {!writer || writer->executable.empty() ? "-" : word(writer->executable)};
}

Cell corrupt(const Item& item) {
  const bool is = item.table->corrupt;
  return {is ? "yes" : "no", is ? Tone::kBad : Tone::kPlain};
}

Cell fenix(const Item& item) {
  const unsigned id = item.table->fenix;
  return number(id == 0 ? std::nullopt : std::optional<uint64_t>(id));
}

struct Column {
  const char* title;
  bool number;
  Cell (*cell)(const Item& item);
};

constexpr Column kColumns[] = {
    {"TABLE", false, name},
    {"WRITER", false, writer},
    {"PID", true, [](const Item& item) { return number(pidOf(item)); }},
    {"EXECUTABLE", false, executable},
    {"CONNS", true, [](const Item& item) { return number(item.table->sockets.connections); }},
    {"FENIX", true, fenix},
    {"CORRUPT", false, corrupt},
    {"BYTES", true, [](const Item& item) { return number(item.table->storage()); }},
    {"RECORDS", true, [](const Item& item) { return number(item.records()); }},
    {"BEHIND", true, [](const Item& item) { return number(behind(item)); }},
    {"LAG", true, [](const Item& item) { return number(lag(item)); }},
    {"LAST OWNER", false, [](const Item& item) { return Cell{orDash(item.table->lastOwner)}; }}};

// What a narrow terminal does not show: the last owner first, the state of the writer last.
const std::vector<std::size_t> kExpendable{11, 5, 3, 7, 10, 2, 8, 6, 9, 4, 1};

// Tables without the number come after all that have it.
uint64_t sortNumber(const Item& item, const std::string& key) {
  const auto above = [](const std::optional<uint64_t>& value) { return value ? *value + 1 : 0; };
  if (key == "pid") return above(pidOf(item));
  if (key == "connections") return item.table->sockets.connections;
  if (key == "bytes") return item.table->storage();
  if (key == "records") return above(item.records());
  if (key == "behind") return above(behind(item));
  return above(lag(item));
}

// The largest number first; tables that are equal stay in the order of their names.
void sort(std::vector<Item>& items, const ListOptions& options) {
  const std::string& key = options.sort;
  std::stable_sort(items.begin(), items.end(), [&](const Item& a, const Item& b) {
    if (key == "name") return a.table->name < b.table->name;
    if (key == "writer") return std::string(writerState(*a.table)) < writerState(*b.table);
    return sortNumber(a, key) > sortNumber(b, key);
  });
  if (options.reverse) std::reverse(items.begin(), items.end());
}

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

std::vector<Item> itemsOf(const Survey& survey, const ListOptions& options) {
  const HeaderReader headers;
  std::vector<Item> items;
  for (const Table* table : survey.tables()) {
    Item item{table, headers.read(*table), std::nullopt};
    if (item.reading.header && isServed(*table)) item.readers = summarize(*item.reading.header);
    if (isWanted(item, options)) items.push_back(std::move(item));
  }
  sort(items, options);
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
  for (const Column& column : kColumns) {
    rows[0].push_back({column.title, Tone::kHeading, column.number});
  }
  for (const Item& item : items) {
    rows.emplace_back();
    for (const Column& column : kColumns) rows.back().push_back(column.cell(item));
  }
  if (width) fit(rows, kExpendable, *width);
  Columns columns;
  for (auto& row : rows) columns.add(std::move(row));
  return columns;
}

}  // namespace

int list(Context& context, const ListOptions& options) {
  const Survey found = survey(context.handler);
  const Listing& base = found.base.directory;
  if (!base.present && base.error != 0) {
    throw std::system_error(base.error, std::generic_category(), found.base.path);
  }
  const std::vector<Item> items = itemsOf(found, options);
  if (context.json) {
    print(toJson(found, items));
  } else {
    columnsOf(items, options.wide ? std::nullopt : terminalWidth())
        .print(std::cout, context.coloured);
  }
  return kYes;
}

}  // namespace Zorbe::Tool
