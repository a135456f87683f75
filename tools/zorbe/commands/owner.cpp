// SPDX-License-Identifier: MIT
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

void printHolder(const Table& table) {
  const Writer& writer = *table.writer;
  std::cout << word(table.name) << ": ";
  if (writer.pids.empty()) {
    std::cout << "held by a process that you may not inspect";
    if (!table.lastOwner.empty()) std::cout << ", perhaps " << printable(table.lastOwner);
  } else {
    std::cout << "pid";
    for (const pid_t pid : writer.pids) std::cout << ' ' << pid;
    std::cout << ", " << writer.state() << ", " << printable(writer.executable) << ": "
              << printable(writer.cmdline);
  }
  std::cout << '\n';
}

}  // namespace

int owner(Context& context, const std::string& name) {
  const Table table = inspect(context.handler, name);
  if (context.json) {
    print({{"name", utf8(name)},
           {"directory", table.directory.present},
           {"writer", toJson(table.writer, table.sockets.listening)},
           {"last_owner", table.lastOwner.empty() ? Json() : Json(utf8(table.lastOwner))}});
  } else if (table.writer) {
    printHolder(table);
  } else if (!table.isThere()) {
    return reportMissing(table);
  } else {
    std::cout << word(name) << ": nobody\n";
  }
  return table.writer ? kYes : kNo;
}

}  // namespace Zorbe::Tool
