// SPDX-License-Identifier: MIT
#include "commands/items.h"

#include "output/text.h"

namespace Zorbe::Tool {

namespace {

std::string orDash(const std::string& text) {
  return text.empty() ? "-" : printable(text);
}

Cell number(const std::optional<uint64_t>& value) {
  return {value ? std::to_string(*value) : "-", Tone::kPlain, true};
}

std::optional<uint64_t> pidOf(const Item& item) {
  const auto& writer = item.table->writer;
  if (!writer || writer->pids.empty()) return std::nullopt;
  return writer->pids.front();
}

std::optional<uint64_t> records(const Item& item) {
  return item.reading.header ? item.reading.header->records : std::nullopt;
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

// Tables without the number come after all that have it.
uint64_t sortNumber(const Item& item, const std::string& key) {
  const auto above = [](const std::optional<uint64_t>& value) { return value ? *value + 1 : 0; };
  if (key == "pid") return above(pidOf(item));
  if (key == "connections") return item.table->sockets.connections;
  if (key == "bytes") return item.table->storage();
  if (key == "records") return above(records(item));
  if (key == "behind") return above(behind(item));
  return above(lag(item));
}

}  // namespace

std::vector<Item> itemsOf(const Survey& survey, const HeaderReader& headers) {
  std::vector<Item> items;
  for (const Table* table : survey.tables()) {
    Item item{table, headers.read(*table), std::nullopt};
    if (item.reading.header && isServed(*table)) item.readers = summarize(*item.reading.header);
    items.push_back(std::move(item));
  }
  return items;
}

const char* writerState(const Table& table) {
  return table.writer ? table.writer->state() : "none";
}

bool isBefore(const Item& a, const Item& b, const std::string& key) {
  if (key == "name") return a.table->name < b.table->name;
  if (key == "writer") return std::string(writerState(*a.table)) < writerState(*b.table);
  return sortNumber(a, key) > sortNumber(b, key);
}

const std::vector<ItemColumn>& itemColumns() {
  static const std::vector<ItemColumn> kColumns{
      {"TABLE", false, name},
      {"WRITER", false, writer},
      {"PID", true, [](const Item& item) { return number(pidOf(item)); }},
      {"EXECUTABLE", false, executable},
      {"CONNS", true, [](const Item& item) { return number(item.table->sockets.connections); }},
      {"FENIX", true, fenix},
      {"CORRUPT", false, corrupt},
      {"BYTES", true, [](const Item& item) { return number(item.table->storage()); }},
      {"RECORDS", true, [](const Item& item) { return number(records(item)); }},
      {"BEHIND", true, [](const Item& item) { return number(behind(item)); }},
      {"LAG", true, [](const Item& item) { return number(lag(item)); }},
      {"LAST OWNER", false, [](const Item& item) { return Cell{orDash(item.table->lastOwner)}; }}};
  return kColumns;
}

}  // namespace Zorbe::Tool
