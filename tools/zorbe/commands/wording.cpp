// SPDX-License-Identifier: MIT
#include <iostream>

#include "commands/commands.h"
#include "output/text.h"

namespace Zorbe::Tool {

std::string describe(const Writer& writer) {
  if (writer.pids.empty()) return "a process that you may not inspect";
  return "pid " + std::to_string(writer.pids.front()) + " (" + printable(writer.executable) + ")";
}

int reportMissing(const Table& table) {
  std::cerr << "zorbe: no table " << word(table.name) << " at " << printable(table.path) << '\n';
  return kNo;
}

}  // namespace Zorbe::Tool
