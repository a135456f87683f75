// SPDX-License-Identifier: MIT
#include "unit/src/sockets/sockets_test_fixture.h"

#include <sys/socket.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cerrno>

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
};

class HiddenNamespaceTest : public SocketFaultTest, public testing::WithParamInterface<int> {
 protected:
  const std::string toldOfHiding =
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
              ElementsAre(Logged(2, toldOfHiding),
                          Logged(2, "Util::socket() success opening local socket, sd:" +
                                        std::to_string(fd))));
}

TEST_P(HiddenNamespaceTest, ASocketThatCannotBeOpenedThereIsNotTalkedAbout) {
  hideNamespace(GetParam());
  Fault::arm("socket", 1, ENFILE);
  handler.trashErrno(EXDEV);
  EXPECT_EQ(open(), -1);
  EXPECT_EQ(errno, ENFILE);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(2, toldOfHiding)));
}

TEST_P(HiddenNamespaceTest, NothingIsFormattedThatNobodyWantsToRead) {
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
    handler.trashErrno(EXDEV);
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(errno, error);
  }
  EXPECT_EQ(Fault::calls("socket"), 0u);
  EXPECT_EQ(handler.asked(), 0u);
  EXPECT_THAT(platform.setnsCalls(), IsEmpty());
}

TEST_F(SocketFaultTest, AFailingSocketLeavesTheThreadInItsOwnNamespace) {
  letThreadSwitch();
  Fault::arm("socket", 1, EMFILE);
  handler.trashErrno(EXDEV);
  Fault::startJournal();
  EXPECT_EQ(open(), -1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_THAT(Fault::journal(), ElementsAre("open", "socket", "strerror", "setns", "close"));
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(2, "Util::socket() success opening /proc/self/ns/net"),
                  Logged(2, "Util::socket() setnsByName() to default success"),
                  Logged(2, "Util::socket() failed opening default socket: Too many open files")));
}

TEST_F(SocketFaultTest, AThreadThatCannotGetBackIsReportedWithEverythingLeftOpen) {
  platform.letSetnsSucceed();
  Fault::arm("setns", 1, EPERM);
  expectLeakedDescriptors(2);
  EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { open(); }),
            "Util::socket() failed to switch back to caller's namespace");
  EXPECT_EQ(Fault::calls("close"), 0u);
  EXPECT_EQ(handler.take().size(), 3u);
  EXPECT_EQ(handler.asked(), 3u);
}

TEST_F(SocketFaultTest, ANamespaceThatCannotBeClosedIsReportedWithTheSocketLeftOpen) {
  Fault::arm("close", 1, EIO);
  expectLeakedDescriptors(1);
  EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { open(); }),
            "Util::socket() failed to close( localNsFd )");
  EXPECT_EQ(Fault::calls("close"), 1u);
  EXPECT_EQ(handler.take().size(), 3u);
  EXPECT_EQ(handler.asked(), 3u);
}

TEST_F(SocketFaultTest, AnUnknownReasonLeavesTheMessageWithoutOne) {
  Fault::arm("socket", 1, EMFILE);
  Fault::arm("strerror", 1, 0);
  EXPECT_EQ(open(), -1);
  EXPECT_EQ(handler.messages().back().text, "Util::socket() failed opening local socket: ");
}

}  // namespace
}  // namespace Zorbe::Test
