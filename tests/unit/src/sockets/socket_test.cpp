// SPDX-License-Identifier: MIT
#include "support/descriptor_zero.h"
#include "unit/src/sockets/sockets_fixture.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <nsutil/nsutil.h>
#include <sys/socket.h>
#include <zorbe/util.h>

#include <cerrno>
#include <climits>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SocketTest : public SocketsTest {
 protected:
  int open() { return keep(Util::socket(handler, AF_UNIX, SOCK_SEQPACKET, 0)); }

  /// As root would see it: the way into the namespace and back is open.
  void letThreadSwitch() {
    platform.letSetnsSucceed();
    Fault::armResult("setns", 1, 0);
  }

  static int option(int fd, int name) {
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, name, &value, &length), 0);
    return value;
  }

  static std::string ownNamespace() {
    const Fault::Bypass bypass;
    char text[PATH_MAX];
    const ssize_t length = readlink("/proc/self/ns/net", text, sizeof text);
    return length < 0 ? std::string() : std::string(text, static_cast<size_t>(length));
  }
};

TEST_F(SocketTest, OpensTheSocketInTheDefaultNamespace) {
  letThreadSwitch();
  errno = 0;
  EXPECT_GE(open(), 0);
  EXPECT_THAT(platform.setnsCalls(), ElementsAre("default 0x40000000"));
  EXPECT_EQ(handler.take(),
            socketMessages("default success", "success opening default socket: Success"));
}

TEST_F(SocketTest, TheSocketMayBeDescriptorZero) {
  const DescriptorZero zero;
  letThreadSwitch();
  zero.freeBefore("socket");
  errno = 0;
  const int fd = Util::socket(handler, AF_UNIX, SOCK_SEQPACKET, 0);
  EXPECT_EQ(fd, 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(handler.messages().back().text,
            "Util::socket() success opening default socket: Success");
}

TEST_F(SocketTest, TheNoteOfTheWayBackMayBeDescriptorZero) {
  const DescriptorZero zero;
  zero.free();
  EXPECT_GT(open(), 0);
  EXPECT_FALSE(DescriptorZero::isOpen());
}

TEST_F(SocketTest, ASocketOfTheCallersNamespaceMayBeDescriptorZero) {
  const DescriptorZero zero;
  Fault::arm("open", 1, ENOENT);
  zero.freeBefore("socket");
  EXPECT_EQ(Util::socket(handler, AF_UNIX, SOCK_SEQPACKET, 0), 0);
  EXPECT_EQ(handler.messages().back().text, "Util::socket() success opening local socket, sd:0");
}

TEST_F(SocketTest, ReturnsToTheNamespaceItCameFromAndClosesItsDescriptor) {
  platform.letSetnsSucceed();
  const auto back = Fault::armResult("setns", 1, 0).onPath(ownNamespace());
  Fault::startJournal();
  EXPECT_GE(open(), 0);
  EXPECT_THAT(Fault::journal(), ElementsAre("open", "socket", "strerror", "setns", "close"));
  EXPECT_EQ(back.fired(), 1u);
}

TEST_F(SocketTest, EntersTheNamespaceThatDefaultNsNamesAtTheTimeOfTheCall) {
  Fault::armResult("setns", 1, 0, 2);
  platform.letSetnsSucceed();
  open();
  DEFAULT_NS = "blue";
  handler.clear();
  errno = 0;
  open();
  EXPECT_THAT(platform.setnsCalls(), ElementsAre("default 0x40000000", "blue 0x40000000"));
  EXPECT_EQ(handler.take(), socketMessages("blue success", "success opening blue socket: Success"));
}

TEST_F(SocketTest, OpensTheSocketInTheCallersNamespaceWhenTheDefaultCannotBeEntered) {
  platform.letSetnsFail("no such namespace");
  errno = 0;
  EXPECT_GE(open(), 0);
  EXPECT_EQ(Fault::calls("setns"), 0u);
  EXPECT_EQ(handler.take(), socketMessages("default failure: no such namespace",
                                           "success opening local socket: Success"));
}

TEST_F(SocketTest, AMissingDescriptionOfTheFailureEndsTheMessage) {
  platform.letSetnsFail(std::nullopt);
  open();
  EXPECT_EQ(handler.messages().at(1).text, "Util::socket() setnsByName() to default failure: ");
}

TEST_F(SocketTest, ReportsOnSuccessForAnyErrno) {
  errno = EXDEV;
  open();
  EXPECT_EQ(handler.messages().back().text,
            "Util::socket() success opening local socket: Invalid cross-device link");
}

TEST_F(SocketTest, EvaluatesNothingThatIsNotLogged) {
  handler.setMaxLevel(1);
  EXPECT_GE(open(), 0);
  EXPECT_EQ(handler.queries(2), 3u);
  EXPECT_EQ(handler.queries(), 3u);
  EXPECT_EQ(platform.tracebufferReads(), 0u);
  EXPECT_EQ(Fault::calls("strerror"), 0u);
}

TEST_F(SocketTest, PassesDomainTypeAndProtocolOn) {
  const int local = open();
  EXPECT_EQ(option(local, SO_DOMAIN), AF_UNIX);
  EXPECT_EQ(option(local, SO_TYPE), SOCK_SEQPACKET);
  const int other = keep(Util::socket(handler, AF_INET, SOCK_DGRAM, IPPROTO_UDP));
  EXPECT_EQ(option(other, SO_DOMAIN), AF_INET);
  EXPECT_EQ(option(other, SO_TYPE), SOCK_DGRAM);
  EXPECT_EQ(option(other, SO_PROTOCOL), IPPROTO_UDP);
}

TEST_F(SocketTest, KeepsItsHoldOnTheNamespaceFromProgramsThatAreStarted) {
  const Census before = Census::take();
  int flags = 0;
  Fault::before("socket", 1, [&] {
    const auto opened = before.openedBy(Census::take());
    ASSERT_EQ(opened.size(), 1u);
    flags = fcntl(opened[0], F_GETFD);
  });
  open();
  EXPECT_EQ(flags, FD_CLOEXEC);
}

TEST_F(SocketTest, ReportsThroughErrnoWhyThereIsNoSocket) {
  handler.clobberErrno(EXDEV);
  EXPECT_EQ(Util::socket(handler, AF_UNIX, SOCK_DCCP, 0), -1);
  EXPECT_EQ(errno, ESOCKTNOSUPPORT);
  EXPECT_THAT(handler.messages().back(),
              Logged(2, "Util::socket() failed opening local socket: Socket type not supported"));
}

}  // namespace
}  // namespace Zorbe::Test
