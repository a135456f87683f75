// SPDX-License-Identifier: MIT
//
// A follower that was stopped in a pass for so long that the tags of the log came round.
#include "support/table_fixture.h"

#include <zorbe/exceptions.h>

using namespace Zorbe;
using namespace Zorbe::Table;
using namespace Zorbe::Test;

namespace {

// In the middle of a pass over the changes 3 (delivered) and 4 (not yet) of a log of four.
class FollowerOverrun : public TableTest {
 protected:
  FollowerOverrun() {
    options.logEntries = 4;
    writer = openWriter();
    put(*writer, 1, 10);
    put(*writer, 2, 20);
    writer->publish();
    reader = openReader();
    follower.emplace(*reader);
    while (next()) continue;
    put(*writer, 1, 11);
    put(*writer, 2, 21);
    writer->publish();
    EXPECT_EQ(next()->sequence, 3u);
  }

  std::optional<Follower::Change> next() {
    uint64_t key = 0;
    Value value;
    return follower->next(&key, &value);
  }

  void overwriteEntry(uint64_t sequence, uint32_t slot) {
    release(writer->log().entry(sequence), packEntry(sequence, slot));
  }
  void publishAs(uint64_t sequence) {
    release(writer->slots().memory().header().published, sequence);
  }

  std::unique_ptr<TableWriter> writer;
  std::unique_ptr<TableReader> reader;
  std::optional<Follower> follower;
};

}  // namespace

TEST_F(FollowerOverrun, AnEntryWithTheSameTagWhoseSlotIsOlderBeginsAgain) {
  overwriteEntry(4, 0);  // key 1, at 3
  publishAs(8);
  EXPECT_EQ(next()->kind, Follower::Kind::kReset);
}

TEST_F(FollowerOverrun, AnEntryWithTheSameTagWhoseSlotIsNewerBeginsAgain) {
  put(*writer, 3, 30);  // at 5, beyond the pass
  overwriteEntry(4, 2);
  publishAs(8);
  EXPECT_EQ(next()->kind, Follower::Kind::kReset);
}

TEST_F(FollowerOverrun, WithoutFurtherChangesAnOlderSlotIsCorruption) {
  overwriteEntry(4, 0);
  EXPECT_THROW(next(), CorruptionDetectedException);
}

TEST_F(FollowerOverrun, AChangeOfThePassThatIsStillThereIsDelivered) {
  publishAs(8);
  const auto change = next();
  EXPECT_EQ(change->kind, Follower::Kind::kPut);
  EXPECT_EQ(change->sequence, 4u);
}

TEST_F(FollowerOverrun, ASlotThatIsAWholeLogNewerBeginsAgain) {
  for (uint64_t sequence = 5; sequence <= 8; ++sequence) put(*writer, 2, sequence);
  overwriteEntry(4, 1);
  publishAs(7);
  EXPECT_EQ(next()->kind, Follower::Kind::kReset);
}

TEST_F(FollowerOverrun, AKeyThatThePassEndsWithComesOnce) {
  EXPECT_EQ(next()->sequence, 4u);
  put(*writer, 1, 12);
  put(*writer, 1, 13);
  publishAs(6);
  EXPECT_EQ(next()->sequence, 6u);
  EXPECT_FALSE(next().has_value());
}
