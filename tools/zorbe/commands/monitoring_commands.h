// SPDX-License-Identifier: MIT
//
// The commands that show tables and who reads them.
#pragma once

#include <string>
#include <vector>

#include "commands/commands.h"

namespace Zorbe::Tool {

struct ListOptions {
  std::vector<std::string> patterns;  ///< of names, as in a shell; none: all
  std::vector<std::string> states;    ///< of which a table has one; none: all
  std::string sort = "name";
  bool reverse = false;
  bool wide = false;  ///< all columns, wider than the terminal
};

int list(Context& context, const ListOptions& options);
int readers(Context& context, const std::string& table);
int top(Context& context, double intervalSeconds);

}  // namespace Zorbe::Tool
