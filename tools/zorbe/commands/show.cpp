// SPDX-License-Identifier: MIT
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/header_facts.h"
#include "output/columns.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

std::string describe(const std::optional<Writer>& writer, bool listening) {
  if (!writer) return "none";
  if (writer->pids.empty()) return "hidden: held by a process that you may not inspect";
  std::string text = writer->state();
  for (const pid_t pid : writer->pids) text += ", pid " + std::to_string(pid);
  return text + (listening ? "" : ", not listening for readers");
}

std::string describe(const Listing& directory) {
  if (!directory.present) {
    return directory.error == 0 ? "missing" : "unusable: " + reason(directory.error);
  }
  std::string text = "mode " + octal(directory.mode);
  if (directory.link) text += ", a symbolic link";
  if (directory.error != 0) text += ", not wholly readable: " + reason(directory.error);
  return text;
}

Columns facts(const Table& table, const HeaderReading& reading) {
  Columns columns;
  const auto add = [&](const char* what, const std::string& text, Tone tone = Tone::kPlain) {
    columns.add({{what, Tone::kHeading}, {text, tone}});
  };
  add("table", word(table.name));
  add("path", printable(table.path));
  add("directory", describe(table.directory));
  add("socket", table.socket ? printable(*table.socket) : "none: the name is too long");
  add("writer", describe(table.writer, table.sockets.listening));
  if (table.writer) {
    add("executable", printable(table.writer->executable));
    add("cmdline", printable(table.writer->cmdline));
  }
  add("connections", std::to_string(table.sockets.connections));
  add("pending", std::to_string(table.sockets.pending));
  add("fenix", table.fenix == 0 ? "none" : std::to_string(table.fenix));
  add("bytes", std::to_string(table.storage()));
  add("last owner", table.lastOwner.empty() ? "none" : printable(table.lastOwner));
  const std::string marker = table.corruption.empty() ? "marked, without a text" : table.corruption;
  add("corruption", table.corrupt ? printable(marker) : "none",
      table.corrupt ? Tone::kBad : Tone::kPlain);
  addFacts(columns, table, reading);
  return columns;
}

Columns files(const Listing& directory) {
  Columns columns;
  const auto title = [](const char* text, bool number) {
    return Cell{text, Tone::kHeading, number};
  };
  columns.add({title("MODE", false), title("SIZE", true), title("BYTES", true),
               title("KIND", false), title("FILE", false)});
  for (const Entry& entry : directory.entries) {
    columns.add({{octal(entry.mode())},
                 {std::to_string(entry.size()), Tone::kPlain, true},
                 {std::to_string(entry.storage()), Tone::kPlain, true},
                 {entry.ours ? entry.kind() : std::string("foreign ") + entry.kind(),
                  entry.ours ? Tone::kPlain : Tone::kWarning},
                 {word(entry.name)}});
  }
  return columns;
}

// Tables of columns, with an empty line between those that have rows.
void printText(const Context& context, const Table& table, const HeaderReading& reading) {
  facts(table, reading).print(std::cout, context.coloured);
  if (reading.header) {
    std::cout << '\n';
    fieldsOf(reading).print(std::cout, context.coloured);
  }
  if (table.directory.entries.empty()) return;
  std::cout << '\n';
  files(table.directory).print(std::cout, context.coloured);
}

}  // namespace

int show(Context& context, const std::string& name) {
  const Table table = inspect(context.handler, name);
  const bool there = table.exists() || table.directory.present;
  const HeaderReading reading = HeaderReader().read(table);
  if (context.json) {
    Json json = toJson(table);
    json["mode"] = table.directory.present ? Json(octal(table.directory.mode)) : Json();
    json["header"] = toJson(table, reading);
    json["files"] = toJson(table.directory);
    print(json);
  } else if (there) {
    printText(context, table, reading);
  } else {
    std::cerr << "zorbe: no table " << word(name) << " at " << printable(table.path) << '\n';
  }
  return there ? kYes : kNo;
}

}  // namespace Zorbe::Tool
