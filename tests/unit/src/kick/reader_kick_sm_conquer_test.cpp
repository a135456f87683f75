// SPDX-License-Identifier: MIT
#include "support/reader_fixture.h"

#include <cerrno>
#include <stdexcept>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ReaderKickSmConquerTest : public ReaderTest {
 protected:
  /// A connected reader that takes kicks; the writer has not kicked yet.
  void enable() {
    connect();
    reader->enabled = true;
  }

  /// The same after the first kick.
  void acknowledge() {
    enable();
    kick();
    ASSERT_TRUE(reader->acknowledged);
    forget();
  }

  Message kickState(bool enabled, bool acknowledged) const {
    return {9, std::string("ReaderKickSm::handleKickFromWriter() initialized:1 enabled:") +
                   (enabled ? "1" : "0") + " ack:" + (acknowledged ? "1" : "0")};
  }
  Message passState(bool enabled, bool acknowledged) const {
    return {9, std::string("ReaderKickSm::doConquer() initialized:1 enabled:") +
                   (enabled ? "1" : "0") + " ack:" + (acknowledged ? "1" : "0")};
  }
};

TEST_F(ReaderKickSmConquerTest, TheFirstKickAcknowledgesAndRunsNoPass) {
  enable();
  kick();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "ReaderKickSm::fdEvent() " + number()), kickState(true, false),
                          Logged(5, "ReaderKickSm::handleKickFromWriter() read 1 kicks")));
  EXPECT_THAT(platform.calls(), ElementsAre("writerAcknowledged"));
  EXPECT_TRUE(reader->acknowledged);
  EXPECT_EQ(counters.conquerKicks, 1u);
  EXPECT_THAT(writerEnd.received(), IsEmpty());
}

TEST_F(ReaderKickSmConquerTest, TheFirstBatchIsOneAcknowledgementHoweverLong) {
  enable();
  kick(5);
  EXPECT_EQ(last(), (Message{5, "ReaderKickSm::handleKickFromWriter() read 5 kicks"}));
  EXPECT_THAT(platform.calls(), ElementsAre("writerAcknowledged"));
  EXPECT_EQ(counters.conquerKicks, 1u);
}

TEST_F(ReaderKickSmConquerTest, TheFlagIsSetAndTheKickCountedWhenTheSubclassIsNotified) {
  enable();
  bool set = false;
  reader->onAcknowledged = [&] { set = reader->acknowledged && counters.conquerKicks == 1; };
  kick();
  EXPECT_TRUE(set);
}

TEST_F(ReaderKickSmConquerTest, ALaterKickRunsAPassAndReports) {
  acknowledge();
  reader->consumed = 42;
  kick();
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(5, "ReaderKickSm::fdEvent() " + number()), kickState(true, true),
                  Logged(5, "ReaderKickSm::handleKickFromWriter() read 1 kicks"),
                  passState(true, true), Logged(5, "ReaderKickSm::sendSequence() at sequence 42")));
  EXPECT_THAT(platform.calls(), ElementsAre("readerSequence", "timer#0 cancel"));
  EXPECT_THAT(writerEnd.received(), ElementsAre(bytesOf(42)));
  EXPECT_EQ(reader->sentSequence, 42u);
}

TEST_F(ReaderKickSmConquerTest, ALaterBatchRunsOnePass) {
  acknowledge();
  kick(40);
  EXPECT_THAT(platform.calls(), ElementsAre("readerSequence", "timer#0 cancel"));
  EXPECT_EQ(counters.conquerKicks, 2u);
  EXPECT_EQ(writerEnd.received().size(), 1u);
}

TEST_F(ReaderKickSmConquerTest, EveryByteOfARecordOfAnyValueIsAKick) {
  enable();
  writerEnd.send(std::string(31, '\0'));
  writerEnd.send("xyz");
  control().fire();
  EXPECT_EQ(last(), (Message{5, "ReaderKickSm::handleKickFromWriter() read 34 kicks"}));
}

TEST_F(ReaderKickSmConquerTest, ThirtyTwoBytesOfARecordAreRead) {
  enable();
  writerEnd.send(std::string(40, '#'));
  control().fire();
  EXPECT_EQ(last(), (Message{5, "ReaderKickSm::handleKickFromWriter() read 32 kicks"}));
}

TEST_F(ReaderKickSmConquerTest, KicksStayUnreadUntilTheReaderIsEnabled) {
  connect();
  kick(2);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::fdEvent() " + number()),
                                          kickState(false, false)));
  EXPECT_EQ(Fault::calls("recv"), 0u);
  reader->enabled = true;
  kick(1);
  EXPECT_EQ(last(), (Message{5, "ReaderKickSm::handleKickFromWriter() read 3 kicks"}));
  EXPECT_EQ(counters.conquerKicks, 1u);
}

TEST_F(ReaderKickSmConquerTest, KicksStayUnreadBeforeInitialisation) {
  enable();
  reader->initialized = false;
  kick();
  EXPECT_EQ(last(),
            (Message{9, "ReaderKickSm::handleKickFromWriter() initialized:0 enabled:1 ack:0"}));
  EXPECT_EQ(Fault::calls("recv"), 0u);
}

TEST_F(ReaderKickSmConquerTest, AnEventWithNothingToReadChangesNothing) {
  acknowledge();
  handler.clobberErrno(ECONNRESET);
  control().fire();
  EXPECT_EQ(last(), (Message{5, "ReaderKickSm::handleKickFromWriter() read 0 kicks"}));
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(counters.conquerKicks, 1u);
}

TEST_F(ReaderKickSmConquerTest, AWriterThatHangsUpEndsTheConnectionWithoutAFailure) {
  acknowledge();
  const std::string fd = number();
  writerEnd.close();
  control().fire();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "ReaderKickSm::fdEvent() " + fd), kickState(true, true),
                          Logged(1, "ReaderKickSm::doCloseWriterConnection() closing: " + fd +
                                        " detaching: 0")));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerConnectionChanged down"));
}

TEST_F(ReaderKickSmConquerTest, WithoutAConnectionReadingKicksFailsAndNotifies) {
  handler.expectFailures();
  reader->enabled = true;
  handler.clobberErrno(EAGAIN);
  reader->handleKickFromWriter();
  EXPECT_THAT(
      handler.texts(0),
      ElementsAre("ReaderKickSm::handleKickFromWriter() recv() error: " + reason(EBADF),
                  "ReaderKickSm::doCloseWriterConnection() error closing: -1 " + reason(EBADF)));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerConnectionChanged down"));
}

TEST_F(ReaderKickSmConquerTest, KicksBeforeTheHangUpAreNotCounted) {
  acknowledge();
  writerEnd.send("#");
  writerEnd.close();
  control().fire();
  EXPECT_EQ(counters.conquerKicks, 1u);
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerConnectionChanged down"));
}

TEST_F(ReaderKickSmConquerTest, AfterReconnectingTheFirstKickAcknowledgesAgain) {
  acknowledge();
  reader->doCloseWriterConnection(false);
  connect();
  kick();
  EXPECT_THAT(platform.calls(), ElementsAre("writerAcknowledged"));
}

TEST_F(ReaderKickSmConquerTest, APassNeedsAnEnabledAndAcknowledgedReader) {
  enable();
  reader->doConquer();
  EXPECT_THAT(handler.take(), ElementsAre(passState(true, false)));
  reader->acknowledged = true;
  reader->enabled = false;
  reader->doConquer();
  EXPECT_THAT(handler.take(), ElementsAre(passState(false, true)));
  reader->enabled = true;
  reader->initialized = false;
  reader->doConquer();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(9, "ReaderKickSm::doConquer() initialized:0 enabled:1 ack:1")));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(ReaderKickSmConquerTest, AnUnfinishedPassIsRunAgainInsteadOfReporting) {
  acknowledge();
  reader->conquerAgain = true;
  kick();
  for (int turn = 0; turn < 3; ++turn) timer().fire();
  EXPECT_THAT(platform.calls(), ElementsAre("readerSequence", "timer#0 start 0", "readerSequence",
                                            "timer#0 start 0", "readerSequence", "timer#0 start 0",
                                            "readerSequence", "timer#0 start 0"));
  EXPECT_EQ(Fault::calls("send"), 0u);
  reader->conquerAgain = false;
  timer().fire();
  EXPECT_EQ(writerEnd.received().size(), 1u);
  EXPECT_FALSE(timer().armed());
}

TEST_F(ReaderKickSmConquerTest, ADeferredPassIsLoggedLikeAnyOther) {
  acknowledge();
  reader->conquerAgain = true;
  reader->doConquer();
  handler.clear();
  reader->conquerAgain = false;
  timer().fire();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "ReaderKickSm::timeout() " + number()), passState(true, true),
                          Logged(5, "ReaderKickSm::sendSequence() at sequence 0")));
}

TEST_F(ReaderKickSmConquerTest, SuspendingWithinAPassDefersIt) {
  acknowledge();
  reader->onReaderSequence = [this] { reader->notifying(false); };
  kick();
  EXPECT_THAT(platform.calls(), ElementsAre("readerSequence", "timer#0 cancel", "timer#0 start 0"));
  EXPECT_EQ(Fault::calls("send"), 0u);
  handler.clear();
  timer().fire();
  EXPECT_EQ(last(), (Message{1, "ReaderKickSm::doConquer() notifications temporarily disabled"}));
}

// The writer waits for a report then and sends no kick: the next pass is the client's to run.
TEST_F(ReaderKickSmConquerTest, CorruptionIsLoggedAndNotReportedBeforeTheClientsOwnPass) {
  acknowledge();
  handler.expectFailures();
  reader->onReaderSequence = [] { throw CorruptionDetectedException("slot 7"); };
  kick();
  EXPECT_EQ(last(), (Message{0,
                             "ReaderKickSm::doConquer exception caught: "
                             "Zorbe::CorruptionDetectedException(\"slot 7\")"}));
  EXPECT_THAT(platform.takeCalls(), ElementsAre("readerSequence"));
  EXPECT_TRUE(reader->connected);
  EXPECT_THAT(writerEnd.received(), IsEmpty());
  reader->onReaderSequence = nullptr;
  reader->doConquer();
  EXPECT_THAT(writerEnd.received(), ElementsAre(bytesOf(0)));
}

TEST_F(ReaderKickSmConquerTest, EveryOtherExceptionLeavesThePass) {
  acknowledge();
  reader->onReaderSequence = [] { throw Brask::RuntimeException("no"); };
  EXPECT_THROW(kick(), Brask::RuntimeException);
  reader->onReaderSequence = [] { throw std::logic_error("no"); };
  EXPECT_THROW(reader->timeout(), std::logic_error);
  EXPECT_TRUE(reader->connected);
  EXPECT_THAT(handler.texts(0), IsEmpty());
}

TEST_F(ReaderKickSmConquerTest, AnExceptionOfTheSubclassKeepsTheAcknowledgement) {
  enable();
  reader->onAcknowledged = [] { throw std::logic_error("no"); };
  EXPECT_THROW(kick(), std::logic_error);
  EXPECT_TRUE(reader->acknowledged);
  kick();
  EXPECT_EQ(writerEnd.received().size(), 1u);
}

TEST_F(ReaderKickSmConquerTest, AFallingSequenceLeavesThePassAsAnException) {
  acknowledge();
  reader->consumed = 5;
  kick();
  writerEnd.received();
  reader->consumed = 4;
  forget();
  EXPECT_THROW(kick(), Brask::RuntimeException);
  EXPECT_THAT(platform.calls(), ElementsAre("readerSequence"));
  EXPECT_THAT(writerEnd.received(), IsEmpty());
}

TEST_F(ReaderKickSmConquerTest, AReaderLosingItsConnectionWithinAPassReportsNothing) {
  acknowledge();
  reader->onReaderSequence = [this] { reader->doCloseWriterConnection(true); };
  kick();
  EXPECT_EQ(Fault::calls("send"), 0u);
  EXPECT_THAT(platform.calls(), ElementsAre("readerSequence", "fd#0 unwatch", "timer#0 cancel"));
}

}  // namespace
}  // namespace Zorbe::Test
