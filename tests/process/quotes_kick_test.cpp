// SPDX-License-Identifier: MIT
//
// The example's writer and readers on one real loop, turned by hand.
#include "fault/fault.h"
#include "support/fixture.h"
#include "support/table.h"

#include <brask/linux/event_loop.h>
#include <quotes_follower.h>
#include <quotes_reader.h>
#include <quotes_writer.h>
#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>

namespace {

using namespace Quotes;

constexpr off_t kPriceOfSlot0 = sizeof(SlotsHeader) + sizeof(uint64_t) + kSymbolBytes;

class Owner : public QuotesReader::Owner {
 public:
  void connectionLost() override { ++lost; }
  void tableReplaced() override { replaced = true; }
  void tableCorrupt(const std::string& why) override { corruption = why; }

  unsigned lost = 0;
  bool replaced = false;
  std::string corruption;
};

class Writer : public QuotesWriter {
 public:
  using QuotesWriter::QuotesWriter;
  size_t sleepers() const { return sleepingReaders.size(); }
};

/// A client that does nothing when it is acknowledged.
class IdleReader : public QuotesReader {
 public:
  using QuotesReader::QuotesReader;
  void writerAcknowledged() override {}
};

class QuotesKick : public Zorbe::Test::ZorbeTest {
 protected:
  QuotesKick() { handler.setMaxLevel(0); }

  template <class Predicate>
  void turnUntil(Predicate holds) {
    for (int turns = 0; !holds(); ++turns) {
      ASSERT_LT(turns, 10000);
      ASSERT_TRUE(loop.turn(10.0)) << "nothing happens any more";
    }
  }

  void turnUntilIdle() {
    while (loop.turn(0.0)) continue;
  }

  void openWriter(const Shape& shape = {}) {
    writer = std::make_unique<Writer>(handler, root, shape);
    writer->open();
  }

  template <class Reader = QuotesReader>
  std::unique_ptr<QuotesReader> connect(double restSeconds = 0) {
    auto reader = std::make_unique<Reader>(handler, root, TableReader::open(root).value(),
                                           restSeconds, counters, owner);
    reader->doConnect();
    return reader;
  }

  /// The reader has reported, the writer has answered, and the reader has not read the
  /// answer yet when the writer publishes.
  void publishRightAfterTheAcknowledgement() {
    turnUntil([&] { return writer->sleepers() == 1; });
    writer->publish({"A", 1, 1});
    turnUntilIdle();
  }

  Brask::Linux::EventLoop loop;
  Zorbe::RootPath root{handler, "kick", true};
  Zorbe::Reader::Counters counters{};
  Owner owner;
  std::unique_ptr<Writer> writer;
};

TEST_F(QuotesKick, AReaderFollowsEveryPublish) {
  openWriter();
  const auto reader = connect();
  for (int i = 0; i < 100; ++i) {
    turnUntil([&] { return writer->sleepers() == 1; });
    writer->publish({"A", i, 1});
    turnUntil([&] { return reader->followed().sequence() == writer->sequence(); });
  }
  turnUntilIdle();
  EXPECT_EQ(digest(reader->followed().copy()), digest(writer->copy()));
  EXPECT_TRUE(writer->readersHaveRead());
}

TEST_F(QuotesKick, AReaderThatDoesNothingWhenAcknowledgedSleepsBehindTheWriterForEver) {
  openWriter();
  const auto reader = connect<IdleReader>();
  publishRightAfterTheAcknowledgement();
  EXPECT_EQ(reader->followed().sequence(), 0u);
  EXPECT_EQ(counters.conquerKicks, 1u) << "both kicks came in one batch";
  writer->publish({"A", 2, 1});
  turnUntilIdle();
  EXPECT_EQ(reader->followed().sequence(), 0u) << "it is not even kicked any more";
  EXPECT_FALSE(writer->readersHaveRead());
}

TEST_F(QuotesKick, AReaderThatRunsAPassWhenAcknowledgedMissesNothing) {
  openWriter();
  const auto reader = connect();
  publishRightAfterTheAcknowledgement();
  EXPECT_EQ(counters.conquerKicks, 1u) << "both kicks came in one batch";
  EXPECT_EQ(reader->followed().sequence(), 1u);
  EXPECT_TRUE(writer->readersHaveRead());
}

TEST_F(QuotesKick, ALongPassGivesTheLoopItsTurnInBetween) {
  openWriter({20000, 64});
  const auto reader = connect();
  turnUntil([&] { return writer->sleepers() == 1; });
  turnUntilIdle();
  EXPECT_GE(counters.conquerYields, 4u);
  EXPECT_EQ(counters.conquerKicks, 1u);
}

TEST_F(QuotesKick, ARestingReaderIsWokenByOneKickForManyPublishes) {
  openWriter();
  const auto reader = connect(0.05);
  turnUntil([&] { return counters.conquerKicks == 1; });
  const uint64_t passesBefore = reader->passes();
  for (int i = 0; i < 1000; ++i) {
    writer->publish({"A", i, 1});
    loop.turn(0.0);
  }
  turnUntil([&] { return reader->followed().sequence() == 1000; });
  EXPECT_LT(reader->passes() - passesBefore, 100u);
}

TEST_F(QuotesKick, TheOwnerIsNotifiedThatTheConnectionIsLost) {
  openWriter();
  const auto reader = connect();
  turnUntil([&] { return writer->sleepers() == 1; });
  writer.reset();
  turnUntil([&] { return owner.lost == 1; });
  EXPECT_FALSE(reader->isConnected());
}

TEST_F(QuotesKick, AReaderConnectsAgainToAWriterThatTookTheTableOver) {
  openWriter();
  writer->publish({"A", 1, 1});
  writer.reset();
  openWriter();
  EXPECT_EQ(writer->sequence(), 1u);
  EXPECT_EQ(writer->expectReconnects(), 1);
  const auto reader = connect();
  turnUntil([&] { return reader->followed().sequence() == 1; });
  EXPECT_EQ(digest(reader->followed().copy()), digest(writer->copy()));
}

TEST_F(QuotesKick, AReaderOfAnotherTableThanTheWritersDoesNotSpin) {
  handler.allowFailures();
  openWriter();
  TableReader old = TableReader::open(root).value();
  writer.reset();
  openWriter();  // in files of its own
  QuotesReader reader(handler, root, std::move(old), 0, counters, owner);
  reader.doConnect();
  turnUntil([&] { return writer->sleepers() == 1; });
  writer->publish({"A", 1, 1});
  bool isOver = false;
  Zorbe::Test::Pause pause([&] { isOver = true; });
  pause.start(0.2);
  turnUntil([&] { return isOver; });
  EXPECT_GE(reader.passes(), 3u);
  EXPECT_LE(reader.passes(), 30u) << "at most two in each rest";
}

TEST_F(QuotesKick, AReaderOfRemovedFilesIsWokenToLeaveThem) {
  openWriter();
  writer->publish({"A", 1, 1});
  const auto reader = connect();
  turnUntil([&] { return writer->readersHaveRead() && writer->sleepers() == 1; });
  const uint32_t before = writer->fenix();
  std::filesystem::remove_all(root.path);
  turnUntil([&] { return owner.replaced; });
  EXPECT_NE(writer->fenix(), before);
  EXPECT_EQ(Zorbe::FenixFile::read(handler, root.path), writer->fenix());
  EXPECT_EQ(writer->copy().size(), 1u);
}

TEST_F(QuotesKick, AWriterMakesFilesAgainThatWereRemovedWhileItOpened) {
  const auto remove = [&] { std::filesystem::remove_all(root.path); };
  Zorbe::Test::Fault::before("chmod", 1, remove).onPath(root.fullPath("fenix"));
  openWriter();
  turnUntil([&] { return Zorbe::FenixFile::read(handler, root.path) == writer->fenix(); });
  EXPECT_TRUE(TableReader::open(root));
}

TEST_F(QuotesKick, AWriterWithTooFewSlotsForTheTableIsRefusedAndTheTableStays) {
  openWriter({2, 8});
  writer->publish({"A", 1, 1});
  writer->publish({"B", 2, 2});
  writer.reset();
  EXPECT_THAT(
      [&] {
        openWriter({1, 8});
      },
      testing::ThrowsMessage<Brask::RuntimeException>(
          testing::HasSubstr("the table is full: no slot of 1 is left for symbol")));
  writer.reset();
  openWriter({2, 8});
  EXPECT_EQ(writer->sequence(), 2u);
  EXPECT_EQ(writer->copy().size(), 2u);
}

TEST_F(QuotesKick, AnIncarnationIdThatADiskHadNoRoomForIsWrittenLater) {
  using namespace Zorbe::Test;
  const auto full = Fault::arm("write", 1, ENOSPC, Fault::kForever).onPath(root.fullPath("fenix"));
  openWriter();
  EXPECT_GE(full.fired(), 1u);
  EXPECT_EQ(Zorbe::FenixFile::read(handler, root.path), 0u);
  Fault::reset();
  turnUntil([&] { return Zorbe::FenixFile::read(handler, root.path) == writer->fenix(); });
}

TEST_F(QuotesKick, AConnectionThatNeverReportsKeepsNobodyWaiting) {
  openWriter();
  QuotesFollower follower(handler, root, {});
  follower.start();
  turnUntil([&] { return writer->reportingReaders() == 1; });
  writer->publish({"A", 1, 1});
  turnUntil([&] { return writer->readersHaveRead(); });
  EXPECT_EQ(writer->lowestSequence(), 0u) << "the one that listens for the writer's end";
}

TEST_F(QuotesKick, AFollowerFindsTheTableOfAWriterThatComesLater) {
  QuotesFollower follower(handler, root, {});
  follower.start();
  openWriter();
  writer->publish({"A", 1, 1});
  turnUntil([&] { return follower.reader() && follower.reader()->followed().sequence() == 1; });
}

TEST_F(QuotesKick, AFollowerConvergesAfterEachRemovalOfTheDirectory) {
  handler.allowFailures();  // the library tells of incarnations that have changed
  openWriter();
  QuotesFollower follower(handler, root, {});
  follower.start();
  for (uint64_t round = 1; round <= 5; ++round) {
    writer->publish({"S" + std::to_string(round), 1, 1});
    turnUntil(
        [&] { return follower.reader() && follower.reader()->followed().sequence() == round; });
    EXPECT_EQ(digest(follower.reader()->followed().copy()), digest(writer->copy()));
    const uint32_t fenix = writer->fenix();
    std::filesystem::remove_all(root.path);
    turnUntil([&] { return writer->fenix() != fenix; });
  }
}

TEST_F(QuotesKick, AFollowerOfACorruptTableDoesNotSpin) {
  handler.allowFailures();
  openWriter({1, 8});
  writer->publish({"A", 1, 1});
  {
    const int fd = ::open(root.fullPath("slots").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::pwrite(fd, "Z", 1, kPriceOfSlot0), 1);
    ASSERT_EQ(::close(fd), 0);
  }
  QuotesFollower follower(handler, root, {});
  follower.start();
  turnUntil([&] { return follower.counters().conquerConnections == 3; });
  EXPECT_LE(follower.counters().inotifyTriggers, 20u);
  writer->publish({"A", 2, 1});
  turnUntil([&] { return follower.reader()->followed().sequence() == 2; });
}

}  // namespace
