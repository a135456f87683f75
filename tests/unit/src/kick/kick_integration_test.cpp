// SPDX-License-Identifier: MIT
//
// Writer and reader against each other, with the test as their loop.
#include "support/reader_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::IsEmpty;

class KickRoadTest : public KickTest {
 protected:
  KickRoadTest() {
    reader->enabled = true;
    reader->onConnectionChanged = [this] {
      if (reader->connected) reader->sendSequence(reader->consumed);
    };
    startWriter();
  }

  void startWriter() {
    writer = std::make_unique<TestWriter>(platform, handler, root);
    writer->createKickSocket();
    listening = platform.fdCount();
    writer->doEnableListen();
  }

  /// The reader connects and sends its first report; the writer accepts and answers.
  void connect() {
    reader->doConnect();
    platform.fd(listening).fire();
    platform.fd(platform.fdCount() - 1).fire();
  }
  void readerTurn() { platform.fd(0).fire(); }
  void writerTurn() { platform.fd(platform.fdCount() - 1).fire(); }
  void publish(uint64_t sequence) {
    writer->writerSequence = sequence;
    writer->doKickSleepers();
  }
  bool asleep() const { return writer->sleepingReaders.size() == 1; }

  Reader::Counters counters = {};
  std::unique_ptr<TestReader> reader =
      std::make_unique<TestReader>(platform, handler, root, counters);
  std::unique_ptr<TestWriter> writer;
  size_t listening = 0;
};

TEST_F(KickRoadTest, TheFirstReportIsAnsweredByTheAcknowledgement) {
  connect();
  EXPECT_FALSE(reader->acknowledged);
  readerTurn();
  EXPECT_TRUE(reader->acknowledged);
  EXPECT_TRUE(asleep());
  EXPECT_EQ(writer->kickCount, 1u);
}

TEST_F(KickRoadTest, APublishWakesTheReaderWhichReadsReportsAndSleepsAgain) {
  connect();
  readerTurn();
  publish(4);
  EXPECT_FALSE(asleep());
  reader->consumed = 4;
  readerTurn();
  writerTurn();
  EXPECT_TRUE(asleep());
  EXPECT_EQ(writer->lowestSequence(), 4u);
  EXPECT_EQ(counters.conquerKicks, 2u);
  EXPECT_EQ(writer->kickCount, 2u);
}

TEST_F(KickRoadTest, AReaderThatIsBehindIsKickedUntilItHasCaughtUp) {
  connect();
  readerTurn();
  publish(3);
  while (reader->consumed < 3) {
    ++reader->consumed;
    readerTurn();
    writerTurn();
  }
  EXPECT_TRUE(asleep());
  EXPECT_EQ(writer->kickCount, 4u);
}

TEST_F(KickRoadTest, AReportThatAPublishOvertookIsKickedAtOnce) {
  reader->doConnect();
  platform.fd(listening).fire();
  publish(1);
  writerTurn();
  EXPECT_FALSE(asleep());
  EXPECT_EQ(writer->kickCount, 1u);
  readerTurn();
  EXPECT_TRUE(reader->acknowledged);
}

TEST_F(KickRoadTest, TheReaderComesBackToTheNextWriter) {
  connect();
  readerTurn();
  writer.reset();
  readerTurn();
  EXPECT_FALSE(reader->connected || reader->acknowledged);
  startWriter();
  connect();
  readerTurn();
  EXPECT_TRUE(reader->acknowledged);
  EXPECT_TRUE(asleep());
}

TEST_F(KickRoadTest, AReaderAheadOfARestartedWriterIsDisconnected) {
  handler.expectFailures();
  writer->writerSequence = 9;
  reader->consumed = 9;
  connect();
  readerTurn();
  writer.reset();
  readerTurn();
  startWriter();
  connect();
  EXPECT_THAT(writer->readers, IsEmpty());
  readerTurn();
  EXPECT_FALSE(reader->connected);
}

}  // namespace
}  // namespace Zorbe::Test
