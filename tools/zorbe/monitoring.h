// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include "command_line.h"

namespace Zorbe::Tool {

/// Adds the commands that show who reads the tables.
void addMonitoring(CLI::App& app, Arguments& arguments);

}  // namespace Zorbe::Tool
