// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/root_path.h>
#include <zorbe/table/options.h>

#include <string>

#include "memory/place.h"

namespace Zorbe::Table {

/// The handler that a program's options name, or one that writes level 0 to standard error.
Brask::Platform::DebugHandler& handlerOf(const Options& options);

/// The directory of a table; touches nothing. Throws Error when it cannot be resolved, or is not
/// a usable name.
RootPath resolveRoot(const std::string& table, const Options& options);

/// The same as a Place.
Place placeOf(const std::string& table, const RootPath& root);

/// Creates the directory with all that lead to it, open to every user like those that RootPath
/// creates.
void createDirectory(const Place& place);

}  // namespace Zorbe::Table
