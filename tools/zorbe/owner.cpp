// SPDX-License-Identifier: MIT
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "json.h"
#include "text.h"

namespace Zorbe::Tool {

namespace {

void tell(const Table& table) {
  const Writer& writer = *table.writer;
  std::cout << word(table.name) << ": ";
  if (writer.pids.empty()) {
    std::cout << "held by a process that you may not look at";
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
  const Table table = lookAt(context.handler, name);
  if (context.json) {
    print({{"name", utf8(name)},
           {"writer", toJson(table.writer, table.sockets.listening)},
           {"last_owner", table.lastOwner.empty() ? Json() : Json(utf8(table.lastOwner))}});
  } else if (table.writer) {
    tell(table);
  } else {
    std::cout << word(name) << ": nobody\n";
  }
  return table.writer ? yes : no;
}

}  // namespace Zorbe::Tool
