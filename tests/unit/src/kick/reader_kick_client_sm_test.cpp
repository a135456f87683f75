// SPDX-License-Identifier: MIT
#include "unit/src/kick/accepted_reader_fixture.h"

#include <cerrno>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class ReaderKickClientSmTest : public AcceptedReaderTest {
 protected:
  bool sleeping() const { return writer->sleepingReaders.count(fd) == 1; }

  Message kick() const { return {5, "ReaderKickClientSm::kick() socket:" + number}; }

  /// The connection is removed from the loop and from both maps.
  void expectRemoved() {
    EXPECT_THAT(platform.calls(), ElementsAre("fd#1 delete", "readersChanged"));
    EXPECT_THAT(writer->readers, IsEmpty());
    EXPECT_THAT(writer->sleepingReaders, IsEmpty());
  }
};

TEST_F(ReaderKickClientSmTest, AFirstReportThatHasCaughtUpSleepsAndIsAcknowledged) {
  writer->writerSequence = 7;
  report(reader, 7);
  EXPECT_THAT(handler.take(),
              ElementsAre(data(5, ""), data(5, " reader sequence:7 writer sequence:7"),
                          data(5, " adding sleeping reader"), kick(),
                          data(5, " acknowledged reader sequence")));
  EXPECT_TRUE(sleeping());
  EXPECT_TRUE(accepted().acknowledged);
  EXPECT_EQ(accepted().sequence, 7u);
  EXPECT_EQ(writer->kickCount, 1u);
  EXPECT_THAT(reader.received(), ElementsAre("#"));
}

TEST_F(ReaderKickClientSmTest, AFirstReportOfZeroToAWriterAtZeroIsAcknowledged) {
  report(reader, 0);
  EXPECT_TRUE(sleeping());
  EXPECT_THAT(reader.received(), ElementsAre("#"));
}

TEST_F(ReaderKickClientSmTest, AnAcknowledgedSleeperIsNotKickedAgain) {
  writer->writerSequence = 7;
  report(reader, 7);
  writer->doKickSleepers();
  reader.received();
  handler.clear();
  report(reader, 7);
  EXPECT_THAT(handler.take(),
              ElementsAre(data(5, ""), data(5, " reader sequence:7 writer sequence:7"),
                          data(5, " adding sleeping reader")));
  EXPECT_TRUE(sleeping());
  EXPECT_THAT(reader.received(), IsEmpty());
}

TEST_F(ReaderKickClientSmTest, ASleeperMayReportAgain) {
  report(reader, 0);
  report(reader, 0);
  EXPECT_EQ(writer->sleepingReaders.size(), 1u);
  EXPECT_THAT(reader.received(), ElementsAre("#"));
}

TEST_F(ReaderKickClientSmTest, AFirstReportThatIsBehindIsKickedAndAcknowledged) {
  writer->writerSequence = 9;
  report(reader, 7);
  EXPECT_THAT(handler.take(),
              ElementsAre(data(5, ""), data(5, " reader sequence:7 writer sequence:9"),
                          data(5, " kicking"), kick(), data(5, " acknowledged reader sequence")));
  EXPECT_FALSE(sleeping());
  EXPECT_TRUE(accepted().acknowledged);
  EXPECT_THAT(reader.received(), ElementsAre("#"));
}

TEST_F(ReaderKickClientSmTest, EveryReportThatIsBehindIsKickedOnce) {
  writer->writerSequence = 9;
  report(reader, 7);
  handler.clear();
  report(reader, 7);
  EXPECT_THAT(handler.take(),
              ElementsAre(data(5, ""), data(5, " reader sequence:7 writer sequence:9"),
                          data(5, " kicking"), kick()));
  EXPECT_THAT(reader.received(), ElementsAre("#", "#"));
  EXPECT_EQ(writer->kickCount, 2u);
}

TEST_F(ReaderKickClientSmTest, ASleeperLeftBehindStaysInTheSetUntilItIsKicked) {
  report(reader, 0);
  writer->writerSequence = 1;
  report(reader, 0);
  EXPECT_TRUE(sleeping());
  writer->doKickSleepers();
  EXPECT_FALSE(sleeping());
  EXPECT_THAT(reader.received(), ElementsAre("#", "#", "#"));
}

TEST_F(ReaderKickClientSmTest, OfQueuedReportsOnlyTheLastCounts) {
  writer->writerSequence = 9;
  reader.report(8);
  reader.report(1000);
  reader.report(3);
  client().fire();
  EXPECT_THAT(handler.take(),
              ElementsAre(data(5, ""), data(5, " reader sequence:3 writer sequence:9"),
                          data(5, " kicking"), kick(), data(5, " acknowledged reader sequence")));
  EXPECT_EQ(accepted().sequence, 3u);
  EXPECT_THAT(reader.received(), ElementsAre("#"));
}

TEST_F(ReaderKickClientSmTest, TheWholeRangeOfSequencesIsUsed) {
  writer->writerSequence = std::numeric_limits<uint64_t>::max();
  report(reader, 0x8000000000000001);
  report(reader, writer->writerSequence);
  EXPECT_TRUE(sleeping());
  EXPECT_EQ(accepted().sequence, 18446744073709551615u);
}

TEST_F(ReaderKickClientSmTest, AFallingSequenceEndsTheConnection) {
  writer->writerSequence = 9;
  report(reader, 7);
  forget();
  report(reader, 6);
  EXPECT_THAT(handler.take(),
              ElementsAreArray(disconnected(
                  {data(0, " bad reader sequence:6 previous sequence:7, disconnecting reader")})));
  handler.expectFailures();
  expectRemoved();
  EXPECT_TRUE(reader.isPeerClosed());
}

TEST_F(ReaderKickClientSmTest, ASequenceAheadOfTheWriterEndsTheConnection) {
  writer->writerSequence = 7;
  report(reader, 7);
  forget();
  report(reader, 8);
  EXPECT_THAT(
      handler.take(),
      ElementsAreArray(disconnected({data(5, " reader sequence:8 writer sequence:7"),
                                     data(0, " bad reader sequence:8 writer sequence:7")})));
  handler.expectFailures();
  expectRemoved();
  EXPECT_THAT(reader.received(), ElementsAre("#"));
  EXPECT_TRUE(reader.isPeerClosed());
}

TEST_F(ReaderKickClientSmTest, AShortRecordEndsTheConnection) {
  reader.send("1234");
  client().fire();
  EXPECT_THAT(
      handler.take(),
      ElementsAreArray(disconnected({data(0, " recv() bad length 4, disconnecting reader")})));
  handler.expectFailures();
  expectRemoved();
}

TEST_F(ReaderKickClientSmTest, EveryLengthFromOneToSevenIsShort) {
  handler.expectFailures();
  for (const size_t length : {1u, 7u}) {
    RawPeer other = connectReader();
    other.send(std::string(length, 'x'));
    platform.fd(platform.fdCount() - 1).fire();
    EXPECT_THAT(handler.texts(0),
                ElementsAre(testing::EndsWith(" recv() bad length " + std::to_string(length) +
                                              ", disconnecting reader")));
    handler.clear();
    EXPECT_TRUE(other.isPeerClosed());
  }
}

TEST_F(ReaderKickClientSmTest, AShortRecordVoidsTheReportsBeforeIt) {
  handler.expectFailures();
  reader.report(0);
  reader.send("1234567");
  client().fire();
  expectRemoved();
  EXPECT_EQ(Fault::calls("send"), 0u);
}

TEST_F(ReaderKickClientSmTest, ALongRecordIsReadAsItsFirstEightBytes) {
  writer->writerSequence = 9;
  reader.send(bytesOf(5) + "and more than that");
  client().fire();
  EXPECT_EQ(accepted().sequence, 5u);
  EXPECT_THAT(reader.received(), ElementsAre("#"));
}

TEST_F(ReaderKickClientSmTest, AReaderThatHangsUpIsForgottenWithoutAFailure) {
  reader.close();
  client().fire();
  EXPECT_THAT(handler.take(), ElementsAreArray(disconnected({})));
  expectRemoved();
}

TEST_F(ReaderKickClientSmTest, AReportBeforeTheHangUpIsNotAnswered) {
  reader.report(0);
  reader.close();
  client().fire();
  EXPECT_THAT(handler.take(), ElementsAreArray(disconnected({})));
  EXPECT_EQ(Fault::calls("send"), 0u);
}

TEST_F(ReaderKickClientSmTest, AReaderThatHangsUpOnAnUnreadKickIsAnErrorToRecv) {
  report(reader, 0);
  forget();
  reader.close();
  client().fire();
  EXPECT_THAT(handler.take(),
              ElementsAreArray(disconnected({data(0, " recv() error: " + reason(ECONNRESET))})));
  handler.expectFailures();
  expectRemoved();
}

TEST_F(ReaderKickClientSmTest, AnEventWithNothingToReadChangesNothing) {
  writer->writerSequence = 9;
  report(reader, 5);
  forget();
  handler.clobberErrno(ECONNRESET);
  client().fire();
  EXPECT_THAT(handler.take(),
              ElementsAre(data(5, ""), data(1, " numSeqs:0, ignoring spurious invocation")));
  EXPECT_EQ(accepted().sequence, 5u);
  EXPECT_TRUE(accepted().acknowledged);
  EXPECT_FALSE(sleeping());
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(Fault::calls("send"), 1u);
}

TEST_F(ReaderKickClientSmTest, ReadsItsOwnDescriptorForAnyEvent) {
  reader.report(0);
  accepted().fdEvent(-77);
  EXPECT_THAT(reader.received(), ElementsAre("#"));
}

TEST_F(ReaderKickClientSmTest, AViolationIsNotReportedWhereFailuresAreNotWanted) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  reader.send("1234");
  client().fire();
  EXPECT_THAT(handler.messages(), IsEmpty());
  expectRemoved();
}

TEST_F(ReaderKickClientSmTest, AReconnectedReaderStartsOver) {
  writer->writerSequence = 9;
  report(reader, 9);
  reader.received();
  reader.close();
  client().fire();
  RawPeer again = connectReader();
  report(again, 3, 1);
  EXPECT_THAT(again.received(), ElementsAre("#"));
  EXPECT_THAT(writer->sleepingReaders, IsEmpty());
  EXPECT_EQ(writer->readers.size(), 1u);
}

TEST_F(ReaderKickClientSmTest, TheSubclassMayDeleteTheSocketWhenAViolationEndsAConnection) {
  handler.expectFailures();
  writer->onReadersChanged = [this] { writer->deleteKickSocket(); };
  reader.send("1234");
  client().fire();
  EXPECT_EQ(writer->kickSocket, -1);
  EXPECT_TRUE(client().isDeleted());
}

}  // namespace
}  // namespace Zorbe::Test
