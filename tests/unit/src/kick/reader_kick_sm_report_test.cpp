// SPDX-License-Identifier: MIT
#include "support/reader_fixture.h"

#include <typeinfo>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ReaderKickSmReportTest : public ReaderTest {
 protected:
  /// Connected, enabled, acknowledged.
  void acknowledge() {
    connect();
    reader->enabled = true;
    reader->acknowledged = true;
  }
};

TEST_F(ReaderKickSmReportTest, AReportIsEightBytesInTheHostsOrder) {
  connect();
  reader->sendSequence(0x1122334455667788);
  EXPECT_THAT(writerEnd.received(), ElementsAre(bytesOf(0x1122334455667788)));
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(5, "ReaderKickSm::sendSequence() at sequence 1234605616436508552")));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(ReaderKickSmReportTest, TheFirstReportNeedsNoAcknowledgement) {
  connect();
  EXPECT_FALSE(reader->enabled || reader->acknowledged);
  reader->sendSequence(0);
  EXPECT_THAT(writerEnd.received(), ElementsAre(bytesOf(0)));
}

TEST_F(ReaderKickSmReportTest, TheSameSequenceIsSentAgain) {
  connect();
  reader->sendSequence(3);
  reader->sendSequence(3);
  EXPECT_THAT(writerEnd.received(), ElementsAre(bytesOf(3), bytesOf(3)));
}

TEST_F(ReaderKickSmReportTest, ALowerSequenceIsRefusedAndNotSent) {
  connect();
  reader->sendSequence(7);
  forget();
  try {
    reader->sendSequence(6);
    FAIL() << "nothing was thrown";
  } catch (const Brask::Exception& refusal) {
    EXPECT_EQ(typeid(refusal), typeid(Brask::RuntimeException));
    EXPECT_STREQ(refusal.what(),
                 "ReaderKickSm::sendSequence() sending sequence:6 previously sent sequence:7");
  }
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::sendSequence() at sequence 6")));
  EXPECT_EQ(reader->sentSequence, 7u);
  EXPECT_THAT(writerEnd.received(), ElementsAre(bytesOf(7)));
}

TEST_F(ReaderKickSmReportTest, WithoutAConnectionNothingIsSentOrRemembered) {
  reader->sendSequence(7);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::sendSequence() at sequence 7")));
  EXPECT_EQ(reader->sentSequence, 0u);
  EXPECT_EQ(Fault::calls("send"), 0u);
}

TEST_F(ReaderKickSmReportTest, WithoutAConnectionALowerSequenceIsNoError) {
  connect();
  reader->sendSequence(7);
  reader->doCloseWriterConnection(true);
  EXPECT_NO_THROW(reader->sendSequence(6));
  EXPECT_EQ(reader->sentSequence, 7u);
}

TEST_F(ReaderKickSmReportTest, BeforeInitialisationNothingIsSent) {
  connect();
  reader->initialized = false;
  reader->sendSequence(7);
  EXPECT_EQ(reader->sentSequence, 0u);
  EXPECT_THAT(writerEnd.received(), IsEmpty());
}

TEST_F(ReaderKickSmReportTest, TheLastReportOutlivesItsConnection) {
  connect();
  reader->sendSequence(7);
  writerEnd.received();
  reader->doCloseWriterConnection(false);
  connect();
  EXPECT_THROW(reader->sendSequence(6), Brask::RuntimeException);
  reader->sendSequence(7);
  EXPECT_THAT(writerEnd.received(), ElementsAre(bytesOf(7)));
}

TEST_F(ReaderKickSmReportTest, TheLastReportMayBeRepeatedByItsOwnMember) {
  connect();
  reader->sendSequence(7);
  reader->sendSequence(reader->sentSequence);
  EXPECT_THAT(writerEnd.received(), ElementsAre(bytesOf(7), bytesOf(7)));
}

TEST_F(ReaderKickSmReportTest, SuspendingCancelsADeferredPass) {
  acknowledge();
  reader->notifying(false);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::notifying() notifying: 0")));
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 cancel"));
  EXPECT_TRUE(reader->notificationsDisabled);
}

TEST_F(ReaderKickSmReportTest, AKickWhileSuspendedIsCountedButNotAnswered) {
  acknowledge();
  reader->notifying(false);
  forget();
  kick();
  EXPECT_EQ(last(), (Message{1, "ReaderKickSm::doConquer() notifications temporarily disabled"}));
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(counters.conquerKicks, 1u);
  EXPECT_EQ(Fault::calls("send"), 0u);
}

TEST_F(ReaderKickSmReportTest, ResumingRunsAPassOnTheNextTurn) {
  acknowledge();
  reader->consumed = 11;
  reader->notifying(false);
  forget();
  reader->notifying(true);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::notifying() notifying: 1")));
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 start 0"));
  EXPECT_FALSE(reader->notificationsDisabled);
  timer().fire();
  EXPECT_THAT(writerEnd.received(), ElementsAre(bytesOf(11)));
}

TEST_F(ReaderKickSmReportTest, ResumingTwiceStartsOneTimer) {
  acknowledge();
  reader->notifying(false);
  reader->notifying(true);
  reader->notifying(true);
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 cancel", "timer#0 start 0"));
}

TEST_F(ReaderKickSmReportTest, ResumingWhatWasNotSuspendedDoesNothing) {
  acknowledge();
  reader->notifying(true);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::notifying() notifying: 1")));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(ReaderKickSmReportTest, SuspensionOutlivesTheConnection) {
  acknowledge();
  reader->notifying(false);
  reader->doCloseWriterConnection(false);
  connect();
  EXPECT_TRUE(reader->notificationsDisabled);
}

}  // namespace
}  // namespace Zorbe::Test
