// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>
#include <zorbe/table/error.h>

#include <optional>
#include <string>

namespace Zorbe::Table {

/// The directory and the name of a table: the context of every failure.
struct Place {
  std::string directory;  // absolute
  std::string table;
  std::optional<uid_t> owner{};  // files of other users are refused

  std::string path(const std::string& file) const { return directory + "/" + file; }
};

/// Throws Error for the system call `call` on `path`, which failed with `error`.
[[noreturn]] void failCall(const Place& place, const char* call, const std::string& path,
                           int error);

/// Throws Zorbe::CorruptionDetectedException: `what` contradicts itself.
[[noreturn]] void failCorrupt(const Place& place, const std::string& what);

}  // namespace Zorbe::Table
