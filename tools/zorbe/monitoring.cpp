// SPDX-License-Identifier: MIT
#include "monitoring.h"

#include "commands/monitoring_commands.h"

namespace Zorbe::Tool {

void addMonitoring(CLI::App& app, Arguments& arguments) {
  withTable(
      withJson(addCommand(app, arguments, "readers", "Show who reads a table",
                          [&](Context& context) { return readers(context, arguments.table); }),
               arguments),
      arguments);
}

}  // namespace Zorbe::Tool
