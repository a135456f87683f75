// SPDX-License-Identifier: MIT
//
// What a writer of the example's table leaves to the next one, however it ends.
#include <sys/resource.h>
#include <zorbe/exceptions.h>

#include <csignal>
#include <filesystem>

#include "process/quotes_table.h"

namespace {

using namespace Quotes;

class QuotesTakeOver : public Zorbe::Test::QuotesTable {
 protected:
  /// Where the slot of a symbol begins in its file.
  std::streamoff offsetOf(const std::string& symbol) const {
    const TableReader reader = TableReader::open(root).value();
    uint32_t index = 0;
    for (Record record; index < reader.slots(); ++index) {
      if (reader.read(index, record) == TableReader::Outcome::kWhole &&
          quoteOf(record).symbol == symbol)
        break;
    }
    return static_cast<std::streamoff>(sizeof(SlotsHeader) + index * sizeof(Slot));
  }

  std::vector<std::string> filesOfTheTable() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(root.path))
      names.push_back(entry.path().filename());
    return names;
  }
};

TEST_F(QuotesTakeOver, TheNextWriterFindsWhatIsWholeAndTheSequence) {
  makeComplete({2, 8});
  table->publish({"A", 1, 1});
  table->publish({"A", 2, 2});
  table->publish({"B", 3, 3});
  damage(kSlotsFile, offsetOf("B"), std::string(1, '\1'));  // killed in its first store
  const Legacy legacy = readLegacy(root);
  EXPECT_EQ(legacy.sequence, 3u);
  EXPECT_EQ(legacy.fenix, fenix);
  EXPECT_EQ(legacy.lost, 1u);
  ASSERT_EQ(legacy.records.size(), 1u);
  EXPECT_EQ(formatRow(quoteOf(legacy.records[0])), "A,0.0002,2");
}

TEST_F(QuotesTakeOver, ARecordThatWasBeingReplacedWhenTheWriterWasKilledIsNotLost) {
  makeComplete({2, 8});
  table->publish({"B", 1, 1});
  table->publish({"A", 2, 2});
  table->publish({"A", 3, 3});
  damage(kSlotsFile, offsetOf("A"), std::string(1, '\3') + std::string(20, 'x'));
  const Legacy legacy = readLegacy(root);
  EXPECT_EQ(legacy.lost, 0u);
  std::vector<std::string> rows;
  for (const Record& record : legacy.records) rows.push_back(formatRow(quoteOf(record)));
  EXPECT_THAT(rows, testing::UnorderedElementsAre("B,0.0001,1", "A,0.0002,2"));
}

TEST_F(QuotesTakeOver, ATableThatIsNotCompletedLeavesTheOneThatWasThere) {
  makeComplete();
  table->publish({"A", 1, 1});
  make({}, 1);
  EXPECT_TRUE(TableReader::open(root)->find("A")) << "while it is made";
  table.reset();
  EXPECT_EQ(readLegacy(root).records.size(), 1u) << "when it was given up";
  EXPECT_THAT(filesOfTheTable(), testing::UnorderedElementsAre(kSlotsFile, kLogFile));
}

TEST_F(QuotesTakeOver, AWriterKilledBetweenThePlacingOfItsTwoFilesLosesNothing) {
  makeComplete();
  table->publish({"A", 1, 1});
  std::filesystem::copy(root.fullPath(kSlotsFile), root.fullPath("kept"));
  make({}, 1).restore(readLegacy(root).records.at(0));
  table->complete();
  std::filesystem::rename(root.fullPath("kept"), root.fullPath(kSlotsFile));
  EXPECT_FALSE(TableReader::open(root)) << "readers wait";
  const Legacy legacy = readLegacy(root);
  EXPECT_EQ(legacy.sequence, 1u);
  EXPECT_EQ(legacy.records.size(), 1u);
}

TEST_F(QuotesTakeOver, WhatAKilledWriterHadBegunIsReplaced) {
  std::ofstream(root.fullPath(kUnfinishedSlotsFile)) << "begun";
  makeComplete();
  EXPECT_TRUE(TableReader::open(root));
  EXPECT_THAT(filesOfTheTable(), testing::UnorderedElementsAre(kSlotsFile, kLogFile));
}

// Before anything is written: a file that cannot be as long as it has to be stands for a full
// disk.
TEST_F(QuotesTakeOver, ATableThatFindsNoRoomLeavesTheOneThatWasThere) {
  makeComplete({4, 4});
  table->publish({"A", 1, 1});
  const rlimit small{4096, RLIM_INFINITY};
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handlerBefore = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_THROW(TableWriter(root, {4096, 4}, 2, 1), Brask::RuntimeException);
  EXPECT_THROW(TableWriter(root, {4, 4096}, 2, 1), Brask::RuntimeException);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, handlerBefore);
  EXPECT_THAT(filesOfTheTable(), testing::UnorderedElementsAre(kSlotsFile, kLogFile));
  EXPECT_TRUE(TableReader::open(root)->find("A"));
}

}  // namespace
