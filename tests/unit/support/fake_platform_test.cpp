// SPDX-License-Identifier: MIT
#include "support/fake_platform.h"

#include "fault/fault.h"
#include "support/fake_platform_fixture.h"

#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <mem/mkpath.h>
#include <nsutil/nsutil.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Client : public Brask::Platform::FdEventHandler,
               public Brask::Platform::TimeoutHandler,
               public Brask::Platform::InotifyHandler {
 public:
  explicit Client(FakePlatform& platform) : platform_(platform) {}
  void fdEvent(int fd) override { platform_.note("fdEvent " + std::to_string(fd)); }
  void timeout() override { platform_.note("timeout"); }
  void inotifyError(const std::string& what) override { platform_.note("error " + what); }
  void inotifyDeleted() override { platform_.note("deleted"); }
  void inotifyChanged(const std::string& what) override { platform_.note("changed " + what); }

 private:
  FakePlatform& platform_;
};

class FakePlatformOwnTest : public FakePlatformTest {
 protected:
  FakePlatformOwnTest() : pipeEnd(open("/dev/null", O_RDONLY)) {}
  ~FakePlatformOwnTest() override { EXPECT_EQ(close(pipeEnd), 0); }

  std::unique_ptr<Brask::Platform::FdControl> newFd() {
    return std::unique_ptr<Brask::Platform::FdControl>(Brask::Platform::getFdControl(&client));
  }
  std::unique_ptr<Brask::Platform::TimerControl> newTimer() {
    return std::unique_ptr<Brask::Platform::TimerControl>(
        Brask::Platform::getTimerControl(&client));
  }
  std::unique_ptr<Brask::Platform::InotifyControl> newInotify() {
    return std::unique_ptr<Brask::Platform::InotifyControl>(
        Brask::Platform::getInotifyControl(&client));
  }

  Client client{platform};
  int pipeEnd;
};

TEST_F(FakePlatformOwnTest, KeepsOneJournalAcrossControls) {
  const auto fd = newFd();
  auto timer = newTimer();
  const auto inotify = newInotify();
  platform.note("mine");
  timer->start(30.0);
  timer->start(0.1);
  inotify->addWatch("/x", 0x208);
  timer->cancel();
  fd->unwatch();
  timer.reset();
  EXPECT_THAT(platform.takeCalls(),
              ElementsAre("fd#0 create", "timer#0 create", "inotify#0 create", "mine",
                          "timer#0 start 30", "timer#0 start 0.1", "inotify#0 addWatch /x 0x208",
                          "timer#0 cancel", "fd#0 unwatch", "timer#0 delete"));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(FakePlatformOwnTest, AWatchedDescriptorIsPreparedAndFiredByHand) {
  const auto fd = newFd();
  fd->watch(pipeEnd);
  platform.fd(0).fire();
  EXPECT_EQ(fd->fd(), pipeEnd);
  EXPECT_EQ(platform.fd(0).queries(), 1u);
  EXPECT_EQ(platform.calls().back(), "fdEvent " + std::to_string(pipeEnd));
  EXPECT_NE(fcntl(pipeEnd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(pipeEnd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(FakePlatformOwnTest, WatchThrowsOnRequestAndOnWhatIsNoDescriptor) {
  const auto fd = newFd();
  platform.failWatch(ENOSPC, 2);
  EXPECT_NO_THROW(fd->watch(pipeEnd));
  EXPECT_THROW(fd->watch(pipeEnd), std::system_error);
  EXPECT_NO_THROW(fd->watch(pipeEnd));
  EXPECT_THROW(fd->watch(-1), std::system_error);
}

TEST_F(FakePlatformOwnTest, ControlsStayKnownWhenTheyAreDeleted) {
  newFd().reset();
  const auto second = newFd();
  EXPECT_TRUE(platform.fd(0).isDeleted());
  EXPECT_FALSE(platform.fd(1).isDeleted());
  EXPECT_EQ(platform.fdCount(), 2u);
  EXPECT_THROW(platform.fd(2), std::out_of_range);
}

TEST_F(FakePlatformOwnTest, FiringWhatCannotCallBackFailsTheTest) {
  auto fd = newFd();
  EXPECT_NONFATAL_FAILURE(platform.fd(0).fire(), "nothing is watched");
  fd->watch(pipeEnd);
  fd.reset();
  EXPECT_NONFATAL_FAILURE(platform.fd(0).fire(), "fd#0 was deleted");
  const auto timer = newTimer();
  EXPECT_NONFATAL_FAILURE(platform.timer(0).fire(), "not armed");
  EXPECT_THAT(platform.takeCalls(), testing::Not(testing::Contains("timeout")));
}

TEST_F(FakePlatformOwnTest, ATimerFiresOnce) {
  const auto timer = newTimer();
  timer->start(30.0);
  EXPECT_TRUE(platform.timer(0).armed());
  EXPECT_EQ(platform.timer(0).seconds(), 30.0);
  platform.timer(0).fire();
  EXPECT_FALSE(platform.timer(0).armed());
  EXPECT_EQ(platform.calls().back(), "timeout");
}

TEST_F(FakePlatformOwnTest, InotifyEventsAreMadeByHand) {
  const auto inotify = newInotify();
  inotify->addWatch("/x", 0x2c0);
  EXPECT_EQ(inotify->path(), "/x");
  EXPECT_EQ(platform.inotify(0).mask(), 0x2c0u);
  platform.takeCalls();
  platform.inotify(0).changed("slots");
  platform.inotify(0).deleted();
  platform.inotify(0).error("no space");
  EXPECT_THAT(platform.calls(), ElementsAre("changed slots", "deleted", "error no space"));
  EXPECT_NONFATAL_FAILURE(platform.inotify(0).changed("slots"), "nothing is watched");
}

TEST_F(FakePlatformOwnTest, NamespacesFailOrSucceedAsArmed) {
  EXPECT_EQ(setnsByName(DEFAULT_NS, 0x40000000), -1);
  EXPECT_STREQ(netnsGetTracebuffer(), "no namespaces in this test");
  platform.letSetnsFail(std::nullopt);
  EXPECT_EQ(netnsGetTracebuffer(), nullptr);
  platform.letSetnsSucceed();
  EXPECT_EQ(setnsByName("blue", 0), 0);
  EXPECT_THAT(platform.setnsCalls(), ElementsAre("default 0x40000000", "blue 0x0"));
  EXPECT_EQ(platform.tracebufferReads(), 2u);
}

TEST_F(FakePlatformOwnTest, MkpathCreatesDirectoriesUnlessArmedToFail) {
  EXPECT_EQ(Mem::mkpath(inRoot("a/b"), 0777), 0);
  EXPECT_EQ(Mem::mkpath(inRoot("a/b"), 0777), 0);
  EXPECT_EQ(access(inRoot("a/b").c_str(), F_OK), 0);
  platform.failMkpath(EROFS);
  EXPECT_EQ(Mem::mkpath(inRoot("c"), 0700), -1);
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(access(inRoot("c").c_str(), F_OK), -1);
  EXPECT_THAT(platform.mkpathCalls(),
              ElementsAre(inRoot("a/b") + " 0777", inRoot("a/b") + " 0777", inRoot("c") + " 0700"));
}

TEST_F(FakePlatformOwnTest, DoesNotDisturbTheCountOfCalls) {
  const auto fd = newFd();
  Fault::reset();
  fd->watch(pipeEnd);
  EXPECT_EQ(Mem::mkpath(inRoot("a"), 0777), 0);
  EXPECT_EQ(Fault::calls("fcntl") + Fault::calls("mkdir"), 0u);
}

TEST_F(FakePlatformOwnTest, ThereIsOneAtATime) {
  EXPECT_THROW(FakePlatform(), std::logic_error);
  EXPECT_EQ(&FakePlatform::current(), &platform);
}

}  // namespace
}  // namespace Zorbe::Test
