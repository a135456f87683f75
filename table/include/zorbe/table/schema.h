// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace Zorbe::Table {

/// What a table's records look like.
struct Schema {
  uint32_t keyBytes = 0;    ///< 1 to 1024
  uint32_t valueBytes = 0;  ///< at most 1 MiB

  /// One line for each field, those of the key first:
  ///
  ///     key symbol S12 0
  ///     value bid f8 0
  ///     value sizes u4[5] 8
  ///
  /// part, name, type, offset in bytes. Types are NumPy's: i1 to i8, u1 to u8, f4, f8, b1, S<n>
  /// (n bytes of text), V<n> (n bytes of anything); "[n]" follows the type of an array.
  std::string description;
};

}  // namespace Zorbe::Table
