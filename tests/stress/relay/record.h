// SPDX-License-Identifier: MIT
//
// The records of the table that is carried, and what is known of a key.
#pragma once

#include <zorbe/table/fields.h>

#include <cstdint>

#include "support/random.h"

namespace Zorbe::Test::RelayChaos {

inline constexpr const char* kTableName = "carried";

using Key = uint32_t;

/// The writer's changes use the keys below this one; what others put on the server, those above.
constexpr Key kKeys = 8192;

/// The same number for the same words, and very likely another one for others.
inline uint64_t mix(uint64_t key, uint64_t number) {
  return Random(Random(key).next() + number).next();
}

/// Follows from the key and from the number of the change: what was never written shows.
struct Record {
  uint64_t number;
  uint64_t checks[3];

  static Record of(Key key, uint64_t number) {
    Random random(mix(key, number));
    return {number, {random.next(), random.next(), random.next()}};
  }
  bool isOf(Key key) const {
    const Record right = of(key, number);
    return checks[0] == right.checks[0] && checks[1] == right.checks[1] &&
           checks[2] == right.checks[2];
  }
};
ZORBE_FIELDS(Record, number, checks);

/// What a reader knows about a key, as one number that only grows: twice the greatest number that
/// it had, and one more when it was erased after that. 0: never seen.
struct KeyState {
  static uint64_t put(uint64_t number) { return 2 * number; }
  static uint64_t erased(uint64_t before) { return before | 1; }
  static uint64_t greatest(uint64_t state) { return state / 2; }
};

}  // namespace Zorbe::Test::RelayChaos
