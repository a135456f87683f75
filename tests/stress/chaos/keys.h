// SPDX-License-Identifier: MIT
#pragma once

#include <brask/linux/stream_debug_handler.h>
#include <table_reader.h>
#include <zorbe/root_path.h>

#include <cstdint>
#include <optional>
#include <string>

#include "stress/chaos/board.h"

namespace Zorbe::Test::Chaos {

/// Reads the table from its files, as a reader of its own, and compares it with what the writers
/// have noted: no key that was published may be missing, or have an older value, regardless of what
/// happened to the writers.
class Keys {
 public:
  Keys(Board& board, const std::string& table);

  /// The directory holds the complete table of this incarnation, which `verify` looks at then.
  bool areInPlace(uint32_t fenix);

  /// Throws Failure for a key that was lost. `mayBeLost` is for a table that no process had in
  /// memory when its directory was removed: what is there counts from now on.
  void verify(bool mayBeLost);

 private:
  void verifyKey(size_t key, uint64_t stored, bool mayBeLost);

  Board& board_;
  Brask::Linux::StreamDebugHandler log_;
  RootPath root_;
  std::optional<Quotes::TableReader> table_;
};

}  // namespace Zorbe::Test::Chaos
