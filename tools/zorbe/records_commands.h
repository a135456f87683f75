// SPDX-License-Identifier: MIT
#pragma once

#include "command_line.h"

namespace Zorbe::Tool {

/// Adds get, dump, tail and feed.
void addRecordCommands(CLI::App& app, Arguments& arguments);

}  // namespace Zorbe::Tool
