// SPDX-License-Identifier: MIT
#include "support/reader_fixture.h"

#include <cerrno>
#include <system_error>
#include <typeinfo>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ReaderKickSmConnectionFaultTest : public ReaderTest {
 protected:
  ReaderKickSmConnectionFaultTest() {
    startWriter();
    handler.clobberErrno(EXDEV);
  }

  std::string refusal() {
    return KickTest::refusal([this] { reader->doConnect(); });
  }
};

TEST_F(ReaderKickSmConnectionFaultTest, WithoutASocketTheLogHasMoreThanTheException) {
  handler.expectFailures();
  Fault::arm("socket", 1, ENFILE);
  EXPECT_EQ(refusal(), "ReaderKickSm::doConnect() socket() failed ");
  EXPECT_THAT(takeMessages(), ElementsAre(Logged(5, "ReaderKickSm::doConnect()"),
                                          Logged(0, "ReaderKickSm::doConnect() socket() failed " +
                                                        table + " " + reason(ENFILE))));
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_FALSE(reader->connected);
}

TEST_F(ReaderKickSmConnectionFaultTest, WithoutANamespaceDescriptorTheReasonIsReported) {
  handler.expectFailures();
  Fault::arm("open", 1, EMFILE).onPath("/proc/self/ns/net");
  EXPECT_EQ(refusal(), "ReaderKickSm::doConnect() socket() failed ");
  EXPECT_EQ(last(), (Message{0, "ReaderKickSm::doConnect() socket() failed " + table + " " +
                                    reason(EMFILE)}));
}

TEST_F(ReaderKickSmConnectionFaultTest, ASocketThatRefusesItsOptionStaysOpen) {
  handler.expectFailures();
  expectLeakedDescriptors(1);
  const std::string fd = std::to_string(nextButOne());
  Fault::arm("setsockopt", 1, ENOMEM);
  EXPECT_EQ(refusal(), "ReaderKickSm::doConnect() setsockopt() failed ");
  EXPECT_THAT(takeMessages(),
              ElementsAre(Logged(5, "ReaderKickSm::doConnect()"),
                          Logged(0, "ReaderKickSm::doConnect() setsockopt() failed " + fd + " " +
                                        table + " " + reason(ENOMEM))));
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_FALSE(reader->connected);
}

TEST_F(ReaderKickSmConnectionFaultTest, EveryErrorOfConnectIsHandledAlike) {
  handler.expectFailures();
  for (const int error : {EINTR, EAGAIN, EACCES, ETIMEDOUT, EINPROGRESS}) {
    const std::string fd = std::to_string(nextButOne());
    Fault::arm("connect", 1, error);
    reader->doConnect();
    EXPECT_EQ(takeMessages(), failedConnect(fd, error));
    EXPECT_FALSE(reader->connected);
  }
  EXPECT_THAT(platform.calls(), IsEmpty());
  connect();
}

TEST_F(ReaderKickSmConnectionFaultTest, ACloseThatFailsAfterAFailedConnectIsLoggedToo) {
  handler.expectFailures();
  const int fd = nextButOne();
  Fault::arm("connect", 1, ECONNREFUSED);
  Fault::arm("close", 1, EIO).onFd(fd);
  reader->doConnect();
  const std::string socket = " socket:" + std::to_string(fd) + " " + table + " failed: ";
  EXPECT_THAT(
      takeMessages(),
      ElementsAre(Logged(5, "ReaderKickSm::doConnect()"),
                  Logged(0, "ReaderKickSm::doConnect() connect()" + socket + reason(ECONNREFUSED)),
                  Logged(0, "ReaderKickSm::doConnect() close()" + socket + reason(EIO))));
  EXPECT_FALSE(reader->connected);
}

TEST_F(ReaderKickSmConnectionFaultTest, AConnectionThatCannotBeWatchedIsClosed) {
  platform.failWatch(ENOSPC);
  EXPECT_THROW(reader->doConnect(), std::system_error);
  EXPECT_TRUE(listening.accept().isPeerClosed());
  EXPECT_FALSE(reader->connected);
  EXPECT_THAT(platform.calls(), ElementsAre(testing::StartsWith("fd#0 watch ")));
  connect();
}

TEST_F(ReaderKickSmConnectionFaultTest, AFailingCloseStillEndsTheConnection) {
  connect();
  handler.expectFailures();
  const std::string fd = number();
  Fault::arm("close", 1, EIO).onFd(control().fd());
  reader->doCloseWriterConnection(false);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(1, "ReaderKickSm::doCloseWriterConnection() closing: " + fd +
                                        " detaching: 0"),
                          Logged(0, "ReaderKickSm::doCloseWriterConnection() error closing: " + fd +
                                        " " + reason(EIO))));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerConnectionChanged down"));
}

TEST_F(ReaderKickSmConnectionFaultTest, AFailingCloseAtTheEndIsLogged) {
  connect();
  handler.expectFailures();
  const std::string fd = number();
  Fault::arm("close", 1, EIO).onFd(control().fd());
  reader.reset();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "ReaderKickSm::~ReaderKickSm()"),
                          Logged(0, "ReaderKickSm::~ReaderKickSm() close() socket:" + fd + " " +
                                        table + " failed: " + reason(EIO))));
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 delete", "fd#0 delete"));
}

TEST_F(ReaderKickSmConnectionFaultTest, ASilentHandlerCausesNoReasonToBeLookedUp) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  Fault::arm("connect", 1, ECONNREFUSED);
  Fault::arm("close", 2, EIO);
  reader->doConnect();
  EXPECT_EQ(Fault::calls("strerror"), 0u);
  EXPECT_FALSE(reader->connected);
}

}  // namespace
}  // namespace Zorbe::Test
