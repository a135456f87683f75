// SPDX-License-Identifier: MIT
//
// The commands that show who reads the tables.
#pragma once

#include <string>

#include "commands/commands.h"

namespace Zorbe::Tool {

int readers(Context& context, const std::string& table);

}  // namespace Zorbe::Tool
