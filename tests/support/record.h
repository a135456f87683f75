// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/fields.h>

#include <cstdint>

namespace Zorbe::Test {

struct Record {
  int64_t a;
  int32_t b;
};
ZORBE_FIELDS(Record, a, b);

/// Begins like Record.
struct LargerRecord {
  int64_t a;
  int32_t b;
  int32_t c;
};
ZORBE_FIELDS(LargerRecord, a, b, c);

}  // namespace Zorbe::Test
