// SPDX-License-Identifier: MIT
#include <iostream>

#include "commands/commands.h"
#include "output/text.h"

namespace Zorbe::Tool {

int reportMissing(const Table& table) {
  std::cerr << "zorbe: no table " << word(table.name) << " at " << printable(table.path) << '\n';
  return kNo;
}

}  // namespace Zorbe::Tool
