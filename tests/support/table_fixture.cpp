// SPDX-License-Identifier: MIT
#include "support/table_fixture.h"

namespace Zorbe::Test {

using Table::Follower;

bool Copy::step() {
  uint64_t key = 0;
  Value value;
  const std::optional<Follower::Change> change = follower.next(&key, &value);
  if (!change) return false;
  auto& target = scanning_ ? scanned_ : records;
  switch (change->kind) {
    case Follower::Kind::kPut:
      if (!value.isWhole()) ++torn;
      target[key] = value.number();
      break;
    case Follower::Kind::kErased:
      target.erase(key);
      break;
    case Follower::Kind::kReset:
      ++resets;
      scanning_ = true;
      scanned_.clear();
      break;
    case Follower::Kind::kComplete:
      scanning_ = false;
      records = std::move(scanned_);
      break;
  }
  return true;
}

}  // namespace Zorbe::Test
