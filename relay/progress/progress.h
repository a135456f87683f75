// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace Zorbe::Relay {

/// How far a transfer of all records is.
struct Progress {
  const char* step;      // what is done: "comparing", "sending" or "receiving"
  uint64_t done = 0;     // of `total`
  uint64_t total = 0;    // 0: not known yet
  uint64_t records = 0;  // of this step, so far
};

}  // namespace Zorbe::Relay
