// SPDX-License-Identifier: MIT
#include "host/readers.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "commands/monitoring_commands.h"
#include "commands/reader_rows.h"
#include "output/columns.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

template <class Number>
Json orNull(const std::optional<Number>& number) {
  return number ? Json(*number) : Json();
}

Json textOrNull(const std::string& text) {
  return text.empty() ? Json() : Json(utf8(text));
}

Json toJson(const ReaderRow& row) {
  return {{"state", word(row.state)},
          {"pid", orNull(row.pid)},
          {"pids", row.pids},
          {"uid", orNull(row.uid)},
          {"user", row.uid ? Json(utf8(userName(*row.uid))) : Json()},
          {"executable", textOrNull(row.executable)},
          {"cmdline", textOrNull(row.cmdline)},
          {"stopped", orNull(row.stopped)},
          {"reported", orNull(row.reported)},
          {"lag_records", orNull(row.lagRecords)},
          {"since_seconds", orNull(row.sinceSeconds)}};
}

// What limits the list, on standard error: the list itself is for programs, too.
void printRemarks(const Table& table, const std::optional<TableHeader>& header,
                  const ReaderList& list) {
  const auto remark = [&](const std::string& text) {
    std::cerr << "zorbe: " << word(table.name) << ": " << text << '\n';
  };
  if (!table.writer) remark("no writer, so nobody is connected");
  if (table.writer && table.writer->stopped) {
    remark("the writer is stopped: the readers are as it saw them last");
  }
  if (!list.problem.empty()) {
    remark("the kernel does not show the processes at the ends of the " +
           std::to_string(table.sockets.connections) + " connections: " + list.problem);
  }
  if (header && isServed(table) && header->readers.connections > header->readers.peers.size()) {
    remark("the header lists " + std::to_string(header->readers.peers.size()) + " of " +
           std::to_string(header->readers.connections) + " connections");
  }
}

Json toJson(const Table& table, const std::optional<TableHeader>& header, const ReaderList& list) {
  Json rows = Json::array();
  for (const ReaderRow& row : list.rows) rows.push_back(toJson(row));
  return {{"name", utf8(table.name)},
          {"writer", toJson(table.writer, table.sockets.listening)},
          {"connections", table.sockets.connections},
          {"pending", table.sockets.pending},
          {"published", header ? Json(header->published) : Json()},
          {"readers", rows},
          {"problem", textOrNull(list.problem)}};
}

}  // namespace

int readers(Context& context, const std::string& name) {
  const Table table = inspect(context.handler, name);
  if (!table.directory.present && !table.exists()) return reportMissing(table);
  const std::optional<TableHeader> header = HeaderReader(0).read(table).header;
  const ReaderList list = findReaders(context.handler, table, header);
  if (context.json) {
    print(toJson(table, header, list));
    return kYes;
  }
  Columns columns;
  for (auto& row : readerRows(list)) columns.add(std::move(row));
  columns.print(std::cout, context.coloured);
  printRemarks(table, header, list);
  return kYes;
}

}  // namespace Zorbe::Tool
