// SPDX-License-Identifier: MIT
#include "fault/fault.h"
#include "unit/platform/nsutil/namespace_fixture.h"

namespace Zorbe::Test {
namespace {

class NsutilFaultTest : public NamespaceTest {
 protected:
  // Any user may open its own namespace in place of the one that was asked for.
  static int openOwn() { return open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC); }
};

TEST_F(NsutilFaultTest, SaysThatOpenFailed) {
  Fault::arm("open", 1, EMFILE).onPath("/run/netns/blue");
  expectRefused("blue", EMFILE, "open() /run/netns/blue: Too many open files");
}

TEST_F(NsutilFaultTest, ANamespaceThatExistsButCannotBeOpenedIsNotPassedOver) {
  Fault::arm("open", 1, EACCES).onPath("/run/netns/default");
  expectRefused("default", EACCES, "open() /run/netns/default: Permission denied");
  EXPECT_EQ(Fault::calls("setns"), 0u);
}

TEST_F(NsutilFaultTest, TheNamespaceOfProcessOneMayBeClosedToTheUser) {
  Fault::arm("open", 1, ENOENT).onPath("/run/netns/default");
  Fault::arm("open", 1, EACCES).onPath("/proc/1/ns/net");
  expectRefused("default", EACCES, "open() /proc/1/ns/net: Permission denied");
}

TEST_F(NsutilFaultTest, OtherNamesDoNotFallBack) {
  Fault::arm("open", 1, ENOENT).onPath("/run/netns/blue");
  expectRefused("blue", ENOENT, "open() /run/netns/blue: No such file or directory");
  EXPECT_EQ(Fault::calls("open"), 1u);
}

TEST_F(NsutilFaultTest, AThreadThatMayNotMoveStaysAndLeavesNothingOpen) {
  Fault::armResult("open", 1, openOwn()).onPath("/run/netns/blue");
  Fault::arm("setns", 1, EPERM);
  expectRefused("blue", EPERM, "setns() /run/netns/blue: Operation not permitted");
}

TEST_F(NsutilFaultTest, ACloseThatFailsDoesNotHideTheMove) {
  const int fd = openOwn();
  Fault::armResult("open", 1, fd).onPath("/run/netns/blue");
  Fault::armResult("setns", 1, 0);
  Fault::arm("close", 1, EIO).onFd(fd);
  EXPECT_EQ(enterInThread("blue").result, 0);
}

TEST_F(NsutilFaultTest, ACloseThatFailsDoesNotHideTheReason) {
  const int fd = openOwn();
  Fault::armResult("open", 1, fd).onPath("/run/netns/blue");
  Fault::arm("setns", 1, EPERM);
  Fault::arm("close", 1, EIO).onFd(fd);
  expectRefused("blue", EPERM, "setns() /run/netns/blue: Operation not permitted");
}

TEST_F(NsutilFaultTest, ARefusedNameMakesNoSystemCall) {
  EXPECT_EQ(setnsByName("a/b", CLONE_NEWNET), -1);
  EXPECT_EQ(Fault::calls("open") + Fault::calls("setns"), 0u);
}

}  // namespace
}  // namespace Zorbe::Test
