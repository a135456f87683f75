// SPDX-License-Identifier: MIT
//
// What a follower delivers while it scans the slots, which it does in slices of 256.
#include "unit/table/damage.h"

#include "support/table_fixture.h"

#include <zorbe/exceptions.h>

namespace Zorbe::Test {
namespace {

using Table::Follower;
using Kind = Table::Follower::Kind;

class FollowerScan : public TableTest {
 protected:
  static constexpr uint64_t kKeys = 600;

  FollowerScan() {
    options.records = 1000;
    options.logEntries = 256;
    writer = openWriter();
    for (uint64_t each = 0; each < kKeys; ++each) put(*writer, each, each);
    writer->publish();
    reader = openReader();
    follower.emplace(*reader);
  }

  Follower::Change next() {
    const auto change = follower->next(&key, &value);
    if (!change) throw std::logic_error("nothing more is delivered");
    return *change;
  }

  // The first slice, up to the slot before `end`.
  void scanUpTo(uint64_t end) {
    if (!hasBegun_) {
      EXPECT_EQ(next().kind, Kind::kReset);
    }
    hasBegun_ = true;
    for (; scanned_ < end; ++scanned_) {
      ASSERT_EQ(next().kind, Kind::kPut);
      ASSERT_EQ(key, scanned_);
    }
  }

  void change(uint64_t changed) {
    put(*writer, changed, changed + 1000);
    writer->publish();
  }

  std::unique_ptr<Table::TableWriter> writer;
  std::unique_ptr<Table::TableReader> reader;
  std::optional<Follower> follower;
  uint64_t key = 0;
  Value value;

 private:
  bool hasBegun_ = false;
  uint64_t scanned_ = 0;
};

TEST_F(FollowerScan, AChangeOfASlotThatWasPassedComesBetweenSlices) {
  scanUpTo(10);
  change(5);
  scanUpTo(256);
  EXPECT_EQ(next().kind, Kind::kPut);
  EXPECT_EQ(key, 5u);
  EXPECT_EQ(value.number(), 1005u);
  EXPECT_EQ(follower->position(), kKeys + 1);
  scanUpTo(kKeys);
  const auto complete = next();
  EXPECT_EQ(complete.kind, Kind::kComplete);
  EXPECT_EQ(complete.sequence, kKeys + 1);
  EXPECT_FALSE(follower->next(&key, &value).has_value());
}

TEST_F(FollowerScan, AChangeOfASlotThatIsStillToComeComesOnce) {
  scanUpTo(256);
  change(256);
  change(300);
  for (uint64_t slot = 256; slot < kKeys; ++slot) {
    ASSERT_EQ(next().kind, Kind::kPut);
    ASSERT_EQ(key, slot);
    ASSERT_EQ(value.number(), slot == 256 || slot == 300 ? slot + 1000 : slot);
  }
  EXPECT_EQ(next().kind, Kind::kComplete);
  EXPECT_FALSE(follower->next(&key, &value).has_value());
}

TEST_F(FollowerScan, BeginsAgainWhenItIsReset) {
  EXPECT_TRUE(follower->hasNext());
  scanUpTo(20);
  EXPECT_TRUE(follower->hasNext());
  follower->reset();
  const auto again = next();
  EXPECT_EQ(again.kind, Kind::kReset);
  EXPECT_EQ(again.sequence, kKeys);
  EXPECT_EQ(next().kind, Kind::kPut);
  EXPECT_EQ(key, 0u);
}

TEST_F(FollowerScan, EverythingThatTheLogHoldsIsDelivered) {
  Copy copy(*reader);
  copy.drain();
  for (uint64_t each = 0; each < 256; ++each) put(*writer, each, each + 1);
  writer->publish();
  EXPECT_EQ(copy.follower.lag(), 256u);
  EXPECT_EQ(copy.drain(), 256u);
  EXPECT_EQ(copy.follower.lag(), 0u);
  EXPECT_FALSE(copy.follower.hasNext());
  EXPECT_EQ(copy.resets, 1u);
  for (uint64_t each = 0; each < 257; ++each) put(*writer, each, each + 2);
  writer->publish();
  EXPECT_EQ(copy.drain(), kKeys + 2);
  EXPECT_EQ(copy.resets, 2u);
}

TEST_F(FollowerScan, ALogThatBeginsLaterLeadsToAReset) {
  Copy copy(*reader);
  copy.drain();
  change(1);
  writer->log().setFirst(kKeys + 1);
  EXPECT_EQ(copy.drain(), 1u);
  change(2);
  writer->log().setFirst(kKeys + 3);
  EXPECT_EQ(copy.drain(), kKeys + 2);
}

TEST_F(FollowerScan, AnOlderRecordThanItsChangeIsNamed) {
  Copy copy(*reader);
  copy.drain();
  change(1);
  Table::release(writer->log().entry(kKeys + 1), Table::packEntry(kKeys + 1, 7));
  try {
    copy.drain();
    ADD_FAILURE() << "was not reported";
  } catch (const CorruptionDetectedException& corrupt) {
    EXPECT_EQ(std::string(corrupt.what()), "table 't' in " + options.place.directory +
                                               ": slot 7 is older than change 601 of the log");
  }
  Table::release(writer->log().entry(kKeys + 1), Table::packEntry(kKeys + 1, 700));
  EXPECT_EQ(copy.drain(), kKeys + 2);  // everything again
  change(3);
  Table::release(writer->log().entry(kKeys + 2), Table::packEntry(kKeys + 2, 1000));
  EXPECT_THROW(copy.drain(), CorruptionDetectedException);
}

}  // namespace
}  // namespace Zorbe::Test
