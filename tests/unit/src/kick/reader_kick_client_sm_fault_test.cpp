// SPDX-License-Identifier: MIT
#include "unit/src/kick/accepted_reader_fixture.h"

#include <cerrno>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class ReaderKickClientSmFaultTest : public AcceptedReaderTest {
 protected:
  std::vector<Message> broken(int error) const {
    return disconnected({data(0, " recv() error: " + reason(error))});
  }
};

TEST_F(ReaderKickClientSmFaultTest, AnErrorOfRecvEndsTheConnection) {
  handler.expectFailures();
  Fault::arm("recv", 1, ENOTCONN);
  client().fire();
  EXPECT_THAT(handler.take(), ElementsAreArray(broken(ENOTCONN)));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#1 delete", "readersChanged"));
  EXPECT_THAT(writer->readers, IsEmpty());
  EXPECT_TRUE(reader.isPeerClosed());
}

TEST_F(ReaderKickClientSmFaultTest, AnInterruptedRecvEndsTheConnection) {
  handler.expectFailures();
  Fault::arm("recv", 1, EINTR);
  client().fire();
  EXPECT_THAT(handler.take(), ElementsAreArray(broken(EINTR)));
}

TEST_F(ReaderKickClientSmFaultTest, AnErrorAfterAReportVoidsTheReport) {
  handler.expectFailures();
  reader.report(0);
  Fault::arm("recv", 2, ECONNRESET);
  client().fire();
  EXPECT_THAT(handler.take(), ElementsAreArray(broken(ECONNRESET)));
  EXPECT_EQ(Fault::calls("send"), 0u);
}

TEST_F(ReaderKickClientSmFaultTest, AnErrorIsNotTakenForAnEmptySocketBecauseOfTheHandler) {
  handler.expectFailures();
  handler.clobberErrno(EAGAIN);
  Fault::arm("recv", 1, ECONNRESET);
  client().fire();
  EXPECT_THAT(handler.take(), ElementsAreArray(broken(ECONNRESET)));
}

TEST_F(ReaderKickClientSmFaultTest, AFailingRecvEndsTheConnectionInSilence) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  handler.clobberErrno(EAGAIN);
  const auto lookedUp = Fault::calls("strerror");
  Fault::arm("recv", 1, ECONNRESET);
  client().fire();
  EXPECT_THAT(writer->readers, IsEmpty());
  EXPECT_EQ(Fault::calls("strerror"), lookedUp);
}

TEST_F(ReaderKickClientSmFaultTest, AShortReadEndsTheConnection) {
  handler.expectFailures();
  reader.report(0);
  Fault::armResult("recv", 1, 3);
  client().fire();
  EXPECT_THAT(handler.take(),
              testing::Contains(data(0, " recv() bad length 3, disconnecting reader")));
  EXPECT_THAT(writer->readers, IsEmpty());
}

TEST_F(ReaderKickClientSmFaultTest, AKickThatFailsIsNotCountedButAcknowledges) {
  handler.expectFailures();
  handler.clobberErrno(EXDEV);
  Fault::arm("send", 1, EPIPE);
  report(reader, 0);
  EXPECT_THAT(handler.take(),
              ElementsAre(data(5, ""), data(5, " reader sequence:0 writer sequence:0"),
                          data(5, " adding sleeping reader"),
                          Logged(5, "ReaderKickClientSm::kick() socket:" + number),
                          Logged(0, "ReaderKickClientSm::kick() socket:" + number + " send() " +
                                        reason(EPIPE)),
                          data(5, " acknowledged reader sequence")));
  EXPECT_EQ(writer->kickCount, 0u);
  EXPECT_TRUE(accepted().acknowledged);
  EXPECT_EQ(writer->sleepingReaders.count(fd), 1u);
  EXPECT_FALSE(reader.isPeerClosed());
}

TEST_F(ReaderKickClientSmFaultTest, AKickOfNothingIsAFailure) {
  handler.expectFailures();
  handler.clobberErrno(ENOBUFS);
  Fault::armResult("send", 1, 0);
  accepted().kick();
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickClientSm::kick() socket:" + number),
                                          Logged(0, "ReaderKickClientSm::kick() socket:" + number +
                                                        " send() " + reason(ENOBUFS))));
  EXPECT_EQ(writer->kickCount, 0u);
}

TEST_F(ReaderKickClientSmFaultTest, AReasonThatTheSystemDoesNotKnowIsLeftOut) {
  handler.expectFailures();
  Fault::arm("send", 1, EPIPE);
  Fault::arm("strerror", 1, 0);
  accepted().kick();
  EXPECT_EQ(last(), (Message{0, "ReaderKickClientSm::kick() socket:" + number + " send() "}));
}

TEST_F(ReaderKickClientSmFaultTest, AReaderWhoseQueueIsFullIsOnlyLogged) {
  handler.allowFailures();
  for (int kicks = 0; kicks < 100000 && handler.texts(0).empty(); ++kicks) {
    handler.clear();
    accepted().kick();
  }
  EXPECT_THAT(handler.texts(0), ElementsAre("ReaderKickClientSm::kick() socket:" + number +
                                            " send() " + reason(EAGAIN)));
  EXPECT_EQ(reader.received().size(), writer->kickCount);
  EXPECT_EQ(writer->readers.count(fd), 1u);
}

TEST_F(ReaderKickClientSmFaultTest, AFailingCloseIsLoggedAndTheConnectionIsClosed) {
  handler.expectFailures();
  handler.clobberErrno(EXDEV);
  Fault::arm("close", 1, EIO).onFd(fd);
  reader.close();
  client().fire();
  EXPECT_EQ(last(), (Message{0, "ReaderKickClientSm::~ReaderKickClientSm() close() failed fd:" +
                                    number + " " + reason(EIO)}));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#1 delete", "readersChanged"));
}

TEST_F(ReaderKickClientSmFaultTest, AConnectionWithoutADescriptorClosesNothing) {
  accepted().fdControl->unwatch();
  const auto closed = Fault::calls("close");
  forget();
  writer->doCloseReaderConnection(fd, &accepted());
  EXPECT_EQ(last(), (Message{5, "ReaderKickClientSm::~ReaderKickClientSm() socket:-1"}));
  EXPECT_EQ(Fault::calls("close"), closed);
  const Fault::Bypass bypass;
  EXPECT_EQ(close(fd), 0);
}

}  // namespace
}  // namespace Zorbe::Test
