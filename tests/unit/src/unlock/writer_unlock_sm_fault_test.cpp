// SPDX-License-Identifier: MIT
#include "unit/src/unlock/unlock_fixture.h"

#include <zorbe/exceptions.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class WriterUnlockSmFaultTest : public UnlockTest {
 protected:
  WriterUnlockSmFaultTest() { handler.clobberErrno(EXDEV); }

  /// doConnect throws an `Exception` of this text.
  template <class Exception>
  void expectThrow(const std::string& text) {
    try {
      reader->doConnect();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const Exception& exception) {
      EXPECT_EQ(exception.what(), text);
    }
  }

  /// The number that the next socket gets: the one below it is that of the namespace.
  static int nextSocket() {
    const Fault::Bypass bypass;
    const int lowest = dup(0);
    const int next = dup(0);
    EXPECT_EQ(close(lowest), 0);
    EXPECT_EQ(close(next), 0);
    return next;
  }

  /// "WriterUnlockSm::doConnect() call socket:5 /root/quotes" with the next socket.
  std::string about(const std::string& call) const {
    return "WriterUnlockSm::doConnect() " + call + std::to_string(nextSocket()) + " " + root.path;
  }

  /// The reader watches `recv` fail with `error`.
  void fireWithRecvError(int error) {
    connect();
    Fault::arm("recv", 1, error);
    platform.fd(0).fire();
  }
};

TEST_F(WriterUnlockSmFaultTest, NoSocketIsThrownInShortAndLoggedInFull) {
  Fault::arm("socket", 1, EMFILE);
  handler.expectFailures();
  expectThrow<Brask::RuntimeException>("WriterUnlockSm::doConnect() socket() failed");
  EXPECT_THAT(takeOwn(), ElementsAre(Logged(5, label("doConnect")),
                                     Logged(0, "WriterUnlockSm::doConnect() socket() failed " +
                                                   root.path + " Too many open files")));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(WriterUnlockSmFaultTest, NoNamespaceIsNoSocket) {
  Fault::arm("open", 1, ENFILE).onPath("/proc/self/ns/net");
  handler.expectFailures();
  expectThrow<Brask::RuntimeException>("WriterUnlockSm::doConnect() socket() failed");
  EXPECT_THAT(handler.texts(0), ElementsAre("WriterUnlockSm::doConnect() socket() failed " +
                                            root.path + " Too many open files in system"));
}

TEST_F(WriterUnlockSmFaultTest, AnOptionThatCannotBeSetLeavesTheSocketOpen) {
  const std::string text = about("setsockopt() failed ") + " Cannot allocate memory";
  Fault::arm("setsockopt", 1, ENOMEM);
  handler.expectFailures();
  expectLeakedDescriptors(1);
  expectThrow<Brask::RuntimeException>("WriterUnlockSm::doConnect() setsockopt() failed");
  EXPECT_THAT(takeOwn(), ElementsAre(Logged(5, label("doConnect")), Logged(0, text)));
  EXPECT_EQ(Fault::calls("connect"), 0u);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

class NoWriterTest : public WriterUnlockSmFaultTest, public testing::WithParamInterface<int> {};

TEST_P(NoWriterTest, IsReportedLater) {
  const std::string text = about("connect() socket:") +
                           " couldn't connect: " + std::strerror(GetParam()) +
                           ". Retrying doConnect() later";
  Fault::arm("connect", 1, GetParam());
  reader->doConnect();
  EXPECT_THAT(takeOwn(), ElementsAre(Logged(5, label("doConnect")), Logged(5, text)));
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 start 0.1"));
}

TEST_P(NoWriterTest, IsReportedEvenWhenTheSocketCannotBeClosed) {
  const std::string text = about("close() socket:") + " failed: Input/output error";
  Fault::arm("connect", 1, GetParam());
  Fault::arm("close", 2, EIO);  // the first is that of the namespace
  handler.expectFailures();
  reader->doConnect();
  EXPECT_THAT(handler.messages().back(), Logged(0, text));
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 start 0.1"));
}

TEST_P(NoWriterTest, TheTimerIsStartedBeforeTheSocketIsClosed) {
  Fault::arm("connect", 1, GetParam());
  Fault::before("close", 2, [&] { EXPECT_TRUE(platform.timer(0).armed()); });
  reader->doConnect();
}

INSTANTIATE_TEST_SUITE_P(Reasons, NoWriterTest, testing::Values(ETIMEDOUT, ECONNREFUSED));

TEST_F(WriterUnlockSmFaultTest, AnInterruptedConnectIsWatched) {
  const std::string fd = std::to_string(nextSocket());
  Fault::arm("connect", 1, EINTR);
  reader->doConnect();
  EXPECT_THAT(
      takeOwn(),
      ElementsAre(
          Logged(5, label("doConnect")),
          Logged(5, "WriterUnlockSm::doConnect() connect() socket:" + fd + " " + root.path +
                        " couldn't connect: Interrupted system call. Connection will be "
                        "established asynchronously"),
          Logged(5, "WriterUnlockSm::doConnect() socket:" + fd + " connected to " + root.path)));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 watch " + fd, "timer#0 cancel"));
}

TEST_F(WriterUnlockSmFaultTest, AnInterruptedConnectThatCameToNothingIsADeparture) {
  Fault::arm("connect", 1, EINTR);
  reader->doConnect();
  handler.clear();
  platform.fd(0).fire();
  EXPECT_THAT(handler.texts(5),
              testing::Contains(label("handleFdEvent") +
                                " recv() error: Transport endpoint is not connected, errno=107: "
                                "assuming disconnected"));
  EXPECT_EQ(platform.calls().back(), "writerUnlocked");
}

TEST_F(WriterUnlockSmFaultTest, AnyOtherReasonNotToConnectIsThrownInFull) {
  for (const int error : {EACCES, EPERM, EAGAIN, EPROTOTYPE, ENOMEM}) {
    const std::string text = about("connect() failed ") + " " + std::strerror(error);
    Fault::arm("connect", 1, error);
    handler.expectFailures();
    expectThrow<ConnectionException>(text);
    EXPECT_THAT(takeOwn(), ElementsAre(Logged(5, label("doConnect")), Logged(0, text)));
  }
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(WriterUnlockSmFaultTest, AFailedConnectKeepsADelayedReportDue) {
  reader->doConnect();
  Fault::arm("connect", 1, EACCES);
  handler.expectFailures();
  EXPECT_THROW(reader->doConnect(), ConnectionException);
  EXPECT_TRUE(platform.timer(0).armed());
}

TEST_F(WriterUnlockSmFaultTest, ASocketThatCannotBeClosedAfterwardsIsLoggedAfterTheReason) {
  const std::string refused = about("connect() failed ") + " Permission denied";
  const std::string unclosed = about("close() socket:") + " failed: Input/output error";
  Fault::arm("connect", 1, EACCES);
  Fault::arm("close", 2, EIO);
  handler.expectFailures();
  expectThrow<ConnectionException>(refused);
  EXPECT_THAT(handler.texts(0), ElementsAre(refused, unclosed));
}

TEST_F(WriterUnlockSmFaultTest, ALoopThatCannotWatchLeavesNothingOpen) {
  startWriter();
  platform.failWatch(ENOSPC);
  EXPECT_THROW(reader->doConnect(), std::system_error);
}

TEST_F(WriterUnlockSmFaultTest, AResetIsADeparture) {
  fireWithRecvError(ECONNRESET);
  EXPECT_THAT(handler.texts(5),
              testing::Contains(label("handleFdEvent") +
                                " notifying because we've disconnected with ECONNRESET"));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerUnlocked"));
}

TEST_F(WriterUnlockSmFaultTest, AnyOtherErrorIsADepartureWithItsReason) {
  fireWithRecvError(EIO);
  EXPECT_THAT(handler.texts(5),
              testing::Contains(label("handleFdEvent") + " recv() error: Input/output error, "
                                                         "errno=5: assuming disconnected"));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerUnlocked"));
}

TEST_F(WriterUnlockSmFaultTest, AnInterruptedRecvIsADeparture) {
  fireWithRecvError(EINTR);
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerUnlocked"));
}

TEST_F(WriterUnlockSmFaultTest, NothingToReadIsNoDepartureForAnyErrnoOfTheHandler) {
  fireWithRecvError(EAGAIN);
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_TRUE(platform.fd(0).watching());
}

TEST_F(WriterUnlockSmFaultTest, ReadsUntilThereIsNothingLeft) {
  connect();
  for (int i = 0; i < 3; ++i) writersEnd.send("x");
  platform.fd(0).fire();
  EXPECT_EQ(Fault::calls("recv"), 4u);
}

TEST_F(WriterUnlockSmFaultTest, AFailedCloseDoesNotKeepItFromReporting) {
  connect();
  const std::string fd = std::to_string(watched());
  Fault::arm("close", 1, EIO).onFd(watched());
  reader->notifyUnlocked();
  EXPECT_THAT(
      handler.take(),
      ElementsAre(
          Logged(5, label("notifyUnlocked") + " turning off notifications"),
          Logged(2, "WriterUnlockSm::doDisconnect() closing for instanceName=label, fd=" + fd),
          Logged(1,
                 "WriterUnlockSm::doDisconnect() error closing: " + fd + " Input/output error")));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerUnlocked"));
}

TEST_F(WriterUnlockSmFaultTest, AFailedCloseInTheDestructorIsLogged) {
  connect();
  const std::string fd = std::to_string(watched());
  Fault::arm("close", 1, EIO).onFd(watched());
  handler.expectFailures();
  reader.reset();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, label("~WriterUnlockSm")),
                          Logged(0, "WriterUnlockSm::~WriterUnlockSm() close() socket:" + fd + " " +
                                        root.path + " failed: Input/output error")));
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 delete", "fd#0 delete"));
}

TEST_F(WriterUnlockSmFaultTest, TheConnectionIsClosedBeforeTheControlsGo) {
  connect();
  Fault::before("close", 1, [&] { platform.note("close"); }).onFd(watched());
  reader.reset();
  EXPECT_THAT(platform.calls(), ElementsAre("close", "timer#0 delete", "fd#0 delete"));
}

TEST_F(WriterUnlockSmFaultTest, TheDescriptorIsClosedBeforeItIsUnwatched) {
  connect();
  Fault::before("close", 1, [&] { platform.note("close"); }).onFd(watched());
  reader->doDisconnect();
  EXPECT_THAT(platform.calls(), ElementsAre("close", "fd#0 unwatch"));
}

TEST_F(WriterUnlockSmFaultTest, NothingIsFormattedThatIsNotLogged) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  Fault::arm("connect", 1, ECONNREFUSED);
  reader->doConnect();
  fireWithRecvError(EIO);
  EXPECT_EQ(Fault::calls("strerror"), 0u);
}

TEST_F(WriterUnlockSmFaultTest, IsDestroyedWholeWithoutMemoryForItsMessages) {
  connect();
  handler.failWithBadAlloc();
  reader.reset();
  EXPECT_THAT(handler.take(), IsEmpty());
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 delete", "fd#0 delete"));
}

}  // namespace
}  // namespace Zorbe::Test
