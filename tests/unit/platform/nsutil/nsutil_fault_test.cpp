// SPDX-License-Identifier: MIT
#include "fault/fault.h"
#include "unit/platform/nsutil/namespace_fixture.h"

namespace Zorbe::Test {
namespace {

class NsutilFaultTest : public NamespaceTest {
 protected:
  // Any user may open its own namespace in place of the one that was asked for.
  static int openOwn() { return open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC); }

  /// The file of this name cannot be opened, which is the reason of the refusal.
  static void expectUnopened(const char* name, int error, const std::string& reason) {
    const std::string path = std::string("/run/netns/") + name;
    Fault::arm("open", 1, error).onPath(path);
    expectRefused(name, error, "open() " + path + ": " + reason);
  }
};

TEST_F(NsutilFaultTest, TracesThatOpenFailed) {
  expectUnopened("blue", EMFILE, "Too many open files");
}

TEST_F(NsutilFaultTest, ANamespaceThatExistsButCannotBeOpenedIsNotPassedOver) {
  expectUnopened("default", EACCES, "Permission denied");
  EXPECT_EQ(Fault::calls("setns"), 0u);
}

TEST_F(NsutilFaultTest, TheNamespaceOfProcessOneMayBeClosedToTheUser) {
  Fault::arm("open", 1, ENOENT).onPath("/run/netns/default");
  Fault::arm("open", 1, EACCES).onPath("/proc/1/ns/net");
  expectRefused("default", EACCES, "open() /proc/1/ns/net: Permission denied");
}

TEST_F(NsutilFaultTest, OtherNamesDoNotFallBack) {
  expectUnopened("blue", ENOENT, "No such file or directory");
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
