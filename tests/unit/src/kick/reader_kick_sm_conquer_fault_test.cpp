// SPDX-License-Identifier: MIT
#include "support/reader_fixture.h"

#include <cerrno>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ReaderKickSmConquerFaultTest : public ReaderTest {
 protected:
  /// Connected, enabled, acknowledged.
  ReaderKickSmConquerFaultTest() {
    connect();
    reader->enabled = true;
    reader->acknowledged = true;
    handler.clobberErrno(EXDEV);
  }

  /// The messages of an event whose recv fails.
  void expectBroken(int error, const std::string& fd) {
    EXPECT_THAT(
        handler.take(),
        ElementsAre(
            Logged(5, "ReaderKickSm::fdEvent() " + fd),
            Logged(9, "ReaderKickSm::handleKickFromWriter() initialized:1 enabled:1 ack:1"),
            Logged(0, "ReaderKickSm::handleKickFromWriter() recv() error: " + reason(error)),
            Logged(1, "ReaderKickSm::doCloseWriterConnection() closing: " + fd + " detaching: 0")));
    EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerConnectionChanged down"));
    EXPECT_FALSE(reader->connected || reader->acknowledged);
  }

  void expectRecvToBreak(int error) {
    handler.expectFailures();
    const std::string fd = number();
    Fault::arm("recv", 1, error);
    control().fire();
    expectBroken(error, fd);
  }
};

TEST_F(ReaderKickSmConquerFaultTest, AnErrorOfRecvEndsTheConnection) {
  expectRecvToBreak(ECONNRESET);
}

TEST_F(ReaderKickSmConquerFaultTest, AnInterruptedRecvEndsTheConnection) {
  expectRecvToBreak(EINTR);
}

TEST_F(ReaderKickSmConquerFaultTest, KicksReadBeforeAnErrorAreNotCounted) {
  handler.expectFailures();
  const std::string fd = number();
  Fault::arm("recv", 2, ENOMEM);
  kick();
  expectBroken(ENOMEM, fd);
  EXPECT_EQ(counters.conquerKicks, 0u);
}

TEST_F(ReaderKickSmConquerFaultTest, AWriterThatLeavesWithAReportUnreadIsAnErrorToRecv) {
  handler.expectFailures();
  reader->sendSequence(0);
  handler.clear();
  const std::string fd = number();
  writerEnd.close();
  control().fire();
  expectBroken(ECONNRESET, fd);
}

TEST_F(ReaderKickSmConquerFaultTest, AReportThatFailsIsRememberedAndNotRepeated) {
  handler.expectFailures();
  Fault::arm("send", 1, EPIPE);
  reader->sendSequence(9);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::sendSequence() at sequence 9"),
                                          Logged(0, "ReaderKickSm::sendSequence() send() socket:" +
                                                        number() + " failed: " + reason(EPIPE))));
  EXPECT_EQ(reader->sentSequence, 9u);
  EXPECT_TRUE(reader->connected);
  EXPECT_EQ(Fault::calls("send"), 1u);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(ReaderKickSmConquerFaultTest, AReportThatFailsStillEndsThePass) {
  handler.expectFailures();
  Fault::arm("send", 1, ENOBUFS);
  kick();
  EXPECT_THAT(platform.calls(), ElementsAre("readerSequence", "timer#0 cancel"));
}

TEST_F(ReaderKickSmConquerFaultTest, AShortReportIsLoggedWithItsLength) {
  handler.expectFailures();
  for (const long length : {7, 1, 0}) {
    Fault::armResult("send", 1, length);
    reader->sendSequence(9);
    EXPECT_EQ(last(), (Message{0, "ReaderKickSm::sendSequence() only sent " +
                                      std::to_string(length) + " bytes!!!"}));
    EXPECT_EQ(reader->sentSequence, 9u);
    EXPECT_TRUE(reader->connected);
  }
}

TEST_F(ReaderKickSmConquerFaultTest, ASilentHandlerCausesNoReasonToBeLookedUp) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  const auto lookedUp = Fault::calls("strerror");
  Fault::arm("send", 1, EPIPE);
  reader->sendSequence(1);
  Fault::arm("recv", 1, ECONNRESET);
  control().fire();
  EXPECT_FALSE(reader->connected);
  EXPECT_EQ(Fault::calls("strerror"), lookedUp);
}

}  // namespace
}  // namespace Zorbe::Test
