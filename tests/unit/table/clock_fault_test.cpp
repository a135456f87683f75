// SPDX-License-Identifier: MIT
//
// The times that a table's files and its status show.
#include "core/peers.h"

#include "support/table_fixture.h"

#include "fault/fault.h"

namespace Zorbe::Test {
namespace {

// Each clock shows another time.
int clockOfSeconds(clockid_t clock, timespec* time) {
  *time = {clock == CLOCK_REALTIME ? 1'700'000'000 : 42, 7};
  return 0;
}

using TableClock = TableTest;

TEST_F(TableClock, StatusHasTheMonotonicTimeAndThePublishTheTimeOfDay) {
  const auto table = openWriter();
  put(*table, 1, 1);
  Fault::divert("clock_gettime", clockOfSeconds);
  EXPECT_EQ(Table::Peers().look({}, {}).now, 42'000'000'007);
  EXPECT_TRUE(table->publish());
  EXPECT_EQ(openReader()->publishedAt(), 1'700'000'000'000'000'007u);
}

}  // namespace
}  // namespace Zorbe::Test
