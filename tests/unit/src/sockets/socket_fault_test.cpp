// SPDX-License-Identifier: MIT
#include "unit/src/sockets/sockets_fixture.h"

#include <sys/socket.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cerrno>
#include <stdexcept>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SocketFaultTest : public SocketsTest {
 protected:
  int open() { return Util::socket(handler, AF_UNIX, SOCK_SEQPACKET, 0); }

  void hideNamespace(int error) { Fault::arm("open", 1, error).onPath("/proc/self/ns/net"); }

  void letThreadSwitch() {
    platform.letSetnsSucceed();
    Fault::armResult("setns", 1, 0);
  }

  /// Opening throws this and leaves so many descriptors open.
  void expectLeaks(size_t descriptors, const std::string& text) {
    expectLeakedDescriptors(descriptors);
    EXPECT_EQ(thrownBy<Brask::RuntimeException>([this] { open(); }), text);
    EXPECT_EQ(handler.take().size(), 3u);
    EXPECT_EQ(handler.queries(), 3u);
  }
};

class HiddenNamespaceTest : public SocketFaultTest, public testing::WithParamInterface<int> {
 protected:
  const std::string reasonMessage =
      "Util::socket() failed to open /proc/self/ns/net reason: " + reason(GetParam());
};

TEST_P(HiddenNamespaceTest, TheSocketIsOpenedWhereTheCallerIs) {
  hideNamespace(GetParam());
  Fault::startJournal();
  const int fd = keep(open());
  EXPECT_GE(fd, 0);
  EXPECT_THAT(platform.setnsCalls(), IsEmpty());
  EXPECT_THAT(Fault::journal(), ElementsAre("open", "strerror", "socket"));
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(2, reasonMessage),
                          Logged(2, "Util::socket() success opening local socket, sd:" +
                                        std::to_string(fd))));
}

TEST_P(HiddenNamespaceTest, ASocketThatCannotBeOpenedThereIsNotTalkedAbout) {
  hideNamespace(GetParam());
  Fault::arm("socket", 1, ENFILE);
  handler.clobberErrno(EXDEV);
  EXPECT_EQ(open(), -1);
  EXPECT_EQ(errno, ENFILE);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(2, reasonMessage)));
}

TEST_P(HiddenNamespaceTest, NothingIsFormattedThatIsNotLogged) {
  hideNamespace(GetParam());
  handler.setMaxLevel(1);
  EXPECT_GE(keep(open()), 0);
  EXPECT_EQ(Fault::calls("strerror"), 0u);
  EXPECT_THAT(handler.messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Reasons, HiddenNamespaceTest, testing::Values(EACCES, ENOENT));

TEST_F(SocketFaultTest, OpensNoSocketWhenTheNamespaceIsOutOfReachForAnyOtherReason) {
  for (const int error : {EMFILE, ENFILE, EPERM, EINTR}) {
    hideNamespace(error);
    handler.clobberErrno(EXDEV);
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(errno, error);
  }
  EXPECT_EQ(Fault::calls("socket"), 0u);
  EXPECT_EQ(handler.queries(), 0u);
  EXPECT_THAT(platform.setnsCalls(), IsEmpty());
}

TEST_F(SocketFaultTest, AFailingSocketLeavesTheThreadInItsOwnNamespace) {
  letThreadSwitch();
  Fault::arm("socket", 1, EMFILE);
  handler.clobberErrno(EXDEV);
  Fault::startJournal();
  EXPECT_EQ(open(), -1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_THAT(Fault::journal(), ElementsAre("open", "socket", "strerror", "setns", "close"));
  EXPECT_EQ(handler.take(), socketMessages("default success",
                                           "failed opening default socket: Too many open files"));
}

TEST_F(SocketFaultTest, AThreadThatCannotGetBackIsReportedWithEverythingLeftOpen) {
  platform.letSetnsSucceed();
  Fault::arm("setns", 1, EPERM);
  expectLeaks(2, "Util::socket() failed to switch back to caller's namespace");
  EXPECT_EQ(Fault::calls("close"), 0u);
}

TEST_F(SocketFaultTest, ANamespaceThatCannotBeClosedIsReportedWithTheSocketLeftOpen) {
  Fault::arm("close", 1, EIO);
  expectLeaks(1, "Util::socket() failed to close( localNsFd )");
  EXPECT_EQ(Fault::calls("close"), 1u);
}

TEST_F(SocketFaultTest, AnExceptionInTheOtherNamespaceReturnsTheThreadAndClosesBoth) {
  for (const unsigned message : {2u, 3u}) {
    Fault::reset();
    letThreadSwitch();
    handler.throwAt(message);
    Fault::startJournal();
    EXPECT_THROW(open(), std::logic_error);
    EXPECT_EQ(Fault::calls("setns"), 1u);
    EXPECT_EQ(Fault::calls("close"), Fault::calls("open") + Fault::calls("socket"));
    EXPECT_EQ(Fault::journal().back(), "close");
  }
}

TEST_F(SocketFaultTest, AnExceptionBeforeTheSwitchClosesTheNamespaceOnly) {
  handler.throwAt(1);
  EXPECT_THROW(open(), std::logic_error);
  EXPECT_EQ(Fault::calls("setns"), 0u);
  EXPECT_EQ(Fault::calls("close"), 1u);
}

TEST_F(SocketFaultTest, AnExceptionAboutALocalSocketClosesIt) {
  hideNamespace(ENOENT);
  handler.throwAt(2);
  EXPECT_THROW(open(), std::logic_error);
  EXPECT_EQ(Fault::calls("close"), 1u);
}

TEST_F(SocketFaultTest, AThreadThatCannotGetBackIsReportedInPlaceOfTheException) {
  platform.letSetnsSucceed();
  Fault::arm("setns", 1, EPERM);
  handler.throwAt(3);
  expectLeakedDescriptors(1);
  EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { open(); }),
            "Util::socket() failed to switch back to caller's namespace");
}

TEST_F(SocketFaultTest, AnUnknownReasonLeavesTheMessageWithoutOne) {
  Fault::arm("socket", 1, EMFILE);
  Fault::arm("strerror", 1, 0);
  EXPECT_EQ(open(), -1);
  EXPECT_EQ(handler.messages().back().text, "Util::socket() failed opening local socket: ");
}

}  // namespace
}  // namespace Zorbe::Test
