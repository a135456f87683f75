// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/root_path.h>
#include <zorbe/table/options.h>
#include <zorbe/table/schema.h>

#include <string>

#include "memory/place.h"

namespace Zorbe::Table {

/// The handler that a program's options name, or one that writes level 0 to standard error.
Brask::Platform::DebugHandler& handlerOf(const Options& options);

/// The directory of a table; does not touch the disk. Throws Error when the name is not usable or
/// cannot be resolved.
RootPath resolveRoot(const std::string& table, const Options& options);

/// The same as a Place.
Place placeOf(const std::string& table, const RootPath& root);

/// Throws Error (schema): a reader with the description `expected` cannot read a table with the
/// description `found`.
[[noreturn]] void failSchema(const Place& place, const Schema& found, const Schema& expected);

/// Creates the directory with its missing parents, world-writable like those that RootPath
/// creates.
void createDirectory(const Place& place);

}  // namespace Zorbe::Table
