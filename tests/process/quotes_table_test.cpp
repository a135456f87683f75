// SPDX-License-Identifier: MIT
//
// The memory of the example's table: what readers can and cannot see of it.
#include "process/quotes_table.h"

#include <zorbe/exceptions.h>

#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace {

using namespace Quotes;
using testing::HasSubstr;
using testing::ThrowsMessage;

using Zorbe::Test::QuotesTable;

TEST_F(QuotesTable, IsNotThereBeforeTheWriterDeclaresItComplete) {
  make({});
  EXPECT_FALSE(TableReader::open(root));
  table->complete();
  EXPECT_TRUE(TableReader::open(root));
}

TEST_F(QuotesTable, IsOpenToEveryUserForAnyUmask) {
  ::umask(077);
  makeComplete();
  for (const char* file : {kSlotsFile, kLogFile}) {
    struct stat status {};
    ASSERT_EQ(::stat(root.fullPath(file).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0666u) << file;
  }
}

TEST_F(QuotesTable, FindsEverySymbolThatWasPublishedAndNoOther) {
  makeComplete({64, 16});
  for (int i = 0; i < 64; ++i) table->publish({"S" + std::to_string(i), i, 1});
  const TableReader reader = TableReader::open(root).value();
  for (int i = 0; i < 64; ++i) {
    const auto quote = reader.find("S" + std::to_string(i));
    ASSERT_TRUE(quote) << i;
    EXPECT_EQ(quote->price, i);
  }
  EXPECT_FALSE(reader.find("S64"));
}

TEST_F(QuotesTable, ReportsThatItIsFullAndStaysAsItWas) {
  makeComplete({2, 16});
  table->publish({"A", 1, 1});
  table->publish({"B", 2, 2});
  EXPECT_THAT(
      [&] {
        table->publish({"C", 3, 3});
      },
      ThrowsMessage<Brask::RuntimeException>(
          "the table is full: no slot of 2 is left for symbol 'C'"));
  EXPECT_EQ(table->sequence(), 2u);
  EXPECT_EQ(table->publish({"A", 4, 4}), 3u);
}

TEST_F(QuotesTable, TakesSymbolsOfFifteenBytesAndRefusesLongerOnes) {
  makeComplete();
  const std::string longest(15, 'x');
  table->publish({longest, 1, 1});
  EXPECT_TRUE(TableReader::open(root)->find(longest));
  EXPECT_THROW(table->publish({longest + "x", 1, 1}), Brask::RuntimeException);
  EXPECT_THROW(table->publish({"", 1, 1}), Brask::RuntimeException);
  EXPECT_EQ(table->sequence(), 1u);
}

TEST_F(QuotesTable, AFollowerAppliesWhatWasPublishedSinceItLooked) {
  makeComplete();
  ChangeFollower follower = follow();
  advanceFully(follower);
  table->publish({"A", 1, 1});
  table->publish({"A", 2, 1});
  table->publish({"B", 3, 1});
  advanceFully(follower);
  EXPECT_EQ(follower.sequence(), 3u);
  EXPECT_EQ(follower.applied(), 3u);
  EXPECT_EQ(digest(follower.copy()), digest(written()));
}

TEST_F(QuotesTable, AFollowerThatWasOverrunScansTheTable) {
  makeComplete({64, 8});
  ChangeFollower follower = follow();
  advanceFully(follower);
  const uint32_t scansBefore = counters.conquerRescans;
  for (int i = 0; i < 40; ++i) table->publish({"S" + std::to_string(i), i, 1});
  advanceFully(follower);
  EXPECT_EQ(counters.conquerRescans, scansBefore + 1);
  EXPECT_EQ(follower.sequence(), 40u);
  EXPECT_EQ(follower.copy().size(), 40u);
}

TEST_F(QuotesTable, AFollowerExactlyAsFarBehindAsTheLogIsLongNeedsNoScan) {
  makeComplete({64, 8});
  ChangeFollower follower = follow();
  advanceFully(follower);
  const uint32_t scansBefore = counters.conquerRescans;
  for (int i = 0; i < 8; ++i) table->publish({"S", i, 1});
  advanceFully(follower);
  EXPECT_EQ(counters.conquerRescans, scansBefore);
  EXPECT_EQ(follower.applied(), 8u);
}

TEST_F(QuotesTable, AFollowerStopsWhenItsBudgetIsUsedUp) {
  makeComplete();
  ChangeFollower follower = follow();
  advanceFully(follower);
  for (int i = 0; i < 10; ++i) table->publish({"A", i, 1});
  EXPECT_EQ(follower.advance(4), ChangeFollower::Progress::kMore);
  EXPECT_EQ(follower.sequence(), 4u);
  EXPECT_EQ(follower.advance(6), ChangeFollower::Progress::kCaughtUp);
}

TEST_F(QuotesTable, AFollowerDoesNotWaitForARecordThatWasLeftHalfWritten) {
  makeComplete({1, 8});
  table->publish({"A", 1, 1});
  damage(kSlotsFile, sizeof(SlotsHeader), std::string(1, '\3'));  // an odd guard
  ChangeFollower follower = follow();
  EXPECT_EQ(follower.advance(100), ChangeFollower::Progress::kBlocked);
  EXPECT_EQ(follower.sequence(), 0u);
}

TEST_F(QuotesTable, AWrongChecksumIsCorruption) {
  makeComplete({1, 8});
  table->publish({"A", 1, 1});
  damage(kSlotsFile, sizeof(SlotsHeader) + sizeof(uint64_t), "Z");
  ChangeFollower follower = follow();
  EXPECT_THAT([&] { follower.advance(100); },
              ThrowsMessage<Zorbe::CorruptionDetectedException>(
                  "slot 0 has a wrong checksum, symbol 'Z' sequence 1"));
}

TEST_F(QuotesTable, AForeignMagicIsCorruption) {
  makeComplete();
  damage(kSlotsFile, 0, "SPOTS001");
  EXPECT_THAT([&] { TableReader::open(root); },
              ThrowsMessage<Zorbe::CorruptionDetectedException>(
                  HasSubstr("slots has the magic 'SPOTS001' and not 'QUOTES02'")));
}

TEST_F(QuotesTable, AFileOfAnotherLengthIsCorruption) {
  makeComplete({4, 8});
  std::filesystem::resize_file(root.fullPath(kSlotsFile), 200);
  EXPECT_THAT([&] { TableReader::open(root); },
              ThrowsMessage<Zorbe::CorruptionDetectedException>(
                  HasSubstr("slots has 200 bytes, which its capacity of 4 contradicts")));
}

TEST_F(QuotesTable, FilesOfTwoIncarnationsAreNoTable) {
  makeComplete();
  std::filesystem::rename(root.fullPath(kLogFile), root.fullPath("kept"));
  makeComplete();
  std::filesystem::rename(root.fullPath("kept"), root.fullPath(kLogFile));
  EXPECT_FALSE(TableReader::open(root));
}

TEST_F(QuotesTable, ANewIncarnationLeavesThoseWhoMapTheOldOneAlone) {
  makeComplete();
  table->publish({"A", 1, 1});
  ChangeFollower follower = follow();
  makeComplete({8, 8});
  advanceFully(follower);
  EXPECT_EQ(follower.copy().size(), 1u);
  EXPECT_FALSE(follower.table().isInPlace(root));
}

TEST_F(QuotesTable, NeverShowsATornRecordToReadersThatHammerIt) {
  makeComplete({4, 8});
  std::atomic<bool> ended{false};
  std::atomic<uint64_t> torn{0};
  std::atomic<uint64_t> whole{0};
  const auto hammer = [&] {
    const TableReader reader = TableReader::open(root).value();
    while (!ended) {
      for (uint32_t slot = 0; slot < 4; ++slot) {
        Record record;
        if (reader.read(slot, record) != TableReader::Outcome::kWhole) continue;
        // The writer keeps price and size equal: a mixture of two records shows.
        torn += record.price != record.size || !checksumHolds(record) ? 1 : 0;
        ++whole;
      }
    }
  };
  std::thread first(hammer);
  std::thread second(hammer);
  for (uint32_t i = 0; i < 300000 || whole < 1000; ++i) {
    table->publish({i % 2 == 0 ? "EVEN" : "ODD", i, i});
  }
  ended = true;
  first.join();
  second.join();
  EXPECT_EQ(torn, 0u);
}

TEST_F(QuotesTable, AFollowerInAnotherThreadConvergesWithAWriterThatOverrunsIt) {
  makeComplete({64, 16});
  ChangeFollower follower = follow();
  constexpr uint64_t kPublishes = 200000;
  std::thread reader([&] {
    while (follower.sequence() < kPublishes) follower.advance(100);
  });
  for (uint64_t i = 0; i < kPublishes; ++i) {
    table->publish({"S" + std::to_string(i % 50), static_cast<int64_t>(i), 1});
  }
  reader.join();
  EXPECT_EQ(digest(follower.copy()), digest(written()));
}

TEST(QuotesRows, AreReadAndWrittenAlike) {
  for (const char* row : {"ABC,10.1250,300", "X,0.0000,0", "S,123456789012.9999,4294967295"}) {
    EXPECT_EQ(formatRow(parseRow(row)), row);
  }
  EXPECT_EQ(formatRow(parseRow("A,7,1")), "A,7.0000,1");
  EXPECT_EQ(formatRow(parseRow("A,7.5,1")), "A,7.5000,1");
}

TEST(QuotesRows, SayWhatIsWrongWithThem) {
  const std::pair<const char*, const char*> cases[] = {
      {"A,1", "row 'A,1' does not have the three fields symbol,price,size"},
      {"A,1,2,3", "row 'A,1,2,3' does not have the three fields symbol,price,size"},
      {",1,2", "symbol '' does not have 1 to 15 bytes"},
      {"A,one,2", "price 'one' is not a decimal number"},
      {"A,-1,2", "price '-1' is not a decimal number"},
      {"A,1.,2", "price '1.' is not a decimal number"},
      {"A,1.23456,2", "price '1.23456' has more than 4 decimals"},
      {"A,1234567890123,2", "price '1234567890123' is too large"},
      {"A,1,2x", "size '2x' is not a whole number"},
      {"A,1,4294967296", "size '4294967296' is too large"}};
  for (const auto& [row, message] : cases) {
    EXPECT_THAT([row = row] { parseRow(row); }, ThrowsMessage<std::invalid_argument>(message));
  }
}

}  // namespace
