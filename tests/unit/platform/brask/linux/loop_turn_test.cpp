// SPDX-License-Identifier: MIT
//
// The order within a turn, and what a turn leaves with the kernel.
#include <sys/inotify.h>

#include <fstream>
#include <memory>
#include <stdexcept>

#include "fault/fault.h"
#include "unit/platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;

namespace {

class LoopTurnTest : public LoopTest {
 protected:
  // Whether the kernel would report the descriptor to one of this process's epoll descriptors.
  static bool isPolled(int fd) {
    const std::string wanted = "tfd:";
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
      std::ifstream info(entry.path());
      for (std::string line; std::getline(info, line);) {
        if (line.compare(0, wanted.size(), wanted) != 0) continue;
        if (std::stoi(line.substr(wanted.size())) == fd) return true;
      }
    }
    return false;
  }

  static bool waitUntilReadable(int fd) { return readable(fd, static_cast<int>(kPatience * 1000)); }

  std::string order;
};

}  // namespace

TEST_F(LoopTurnTest, DescriptorsAndPathsComeBeforeTimers) {
  Pair pair;
  Directory directory;
  FdProbe descriptor([this](int) { order += 'd'; });
  InotifyProbe path([this] { order += 'p'; });
  InotifyProbe refused([this] { order += 'r'; });
  TimerProbe immediate([this] { order += 't'; });
  descriptor.control->watch(pair.here);
  path.control->addWatch(directory.path, IN_CREATE);
  refused.control->addWatch(directory.path + "/none", IN_CREATE);
  immediate.control->start(0.0);
  pair.makeReady();
  directory.make("new");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("dprt", order);
}

TEST_F(LoopTurnTest, AnExpiredTimerComesBehindTheDescriptorsToo) {
  Pair pair;
  FdProbe descriptor([this](int) { order += 'd'; });
  TimerProbe expired([this] { order += 't'; });
  descriptor.control->watch(pair.here);
  expired.control->start(0.001);
  ASSERT_TRUE(waitUntilReadable(loop->fd()));
  pair.makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("dt", order);
}

TEST_F(LoopTurnTest, AnExpiredTimerThatIsCancelledLeavesFdUnreadable) {
  const int fd = loop->fd();
  TimerProbe timer;
  timer.control->start(0.001);
  ASSERT_TRUE(waitUntilReadable(fd));
  timer.control->cancel();
  EXPECT_FALSE(readable(fd));
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(LoopTurnTest, AnExpiredTimerThatIsDeletedOrMovedLeavesFdUnreadable) {
  const int fd = loop->fd();
  auto deleted = std::make_unique<TimerProbe>();
  deleted->control->start(0.001);
  ASSERT_TRUE(waitUntilReadable(fd));
  deleted.reset();
  EXPECT_FALSE(readable(fd));
  TimerProbe moved;
  moved.control->start(0.001);
  ASSERT_TRUE(waitUntilReadable(fd));
  moved.control->start(1000.0);
  EXPECT_FALSE(readable(fd));
}

TEST_F(LoopTurnTest, ARefusalOfAWatchThatIsRemovedLeavesFdUnreadable) {
  const int fd = loop->fd();
  InotifyProbe removed;
  auto deleted = std::make_unique<InotifyProbe>();
  removed.control->addWatch("/nonexistent/directory", IN_CREATE);
  removed.control->removeWatch();
  EXPECT_FALSE(readable(fd));
  deleted->control->addWatch("/nonexistent/directory", IN_CREATE);
  deleted.reset();
  EXPECT_FALSE(readable(fd));
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(LoopTurnTest, AReplacedDescriptorIsNotPolledAnyMore) {
  Pair first, second;
  FdProbe probe;
  probe.control->watch(first.here);
  EXPECT_TRUE(isPolled(first.here));
  probe.control->watch(second.here);
  EXPECT_FALSE(isPolled(first.here));
  EXPECT_TRUE(isPolled(second.here));
  first.makeReady();
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(LoopTurnTest, ADescriptorWhoseControlIsDeletedIsNotPolledAnyMore) {
  Pair pair;
  auto probe = std::make_unique<FdProbe>();
  probe->control->watch(pair.here);
  probe.reset();
  EXPECT_FALSE(isPolled(pair.here));
}

TEST_F(LoopTurnTest, ADescriptorThatIsReplacedByARefusedOneIsNotPolledAnyMore) {
  Pair pair;
  FdProbe probe;
  probe.control->watch(pair.here);
  EXPECT_THROW(probe.control->watch(-1), std::system_error);
  EXPECT_FALSE(isPolled(pair.here));
}

TEST_F(LoopTurnTest, TheFailureOfAWatchThatCouldBeSetMeanwhileIsNotReported) {
  Directory directory;
  InotifyProbe probe;
  const std::string path = directory.path + "/late";
  probe.control->addWatch(path, IN_CREATE);
  directory.make("late");
  probe.control->addWatch(path, IN_CREATE);
  settle();
  EXPECT_EQ(std::vector<std::string>{}, probe.reports);
  touch(path + "/file");
  settle();
  EXPECT_EQ(std::vector<std::string>{"changed file"}, probe.reports);
}

TEST_F(LoopTurnTest, TheFailureOfAWatchThatWasReplacedByAnotherIsNotReported) {
  Directory directory;
  InotifyProbe probe;
  probe.control->addWatch(directory.path + "/none", IN_CREATE);
  probe.control->addWatch(directory.path, IN_CREATE);
  settle();
  EXPECT_EQ(std::vector<std::string>{}, probe.reports);
}

TEST_F(LoopTurnTest, ATurnInsideACallbackIsRefusedWithTheReason) {
  std::string reason;
  TimerProbe timer([&] { reason = textOf<std::logic_error>([this] { loop->turn(0); }); });
  timer.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("EventLoop: turned from inside a callback", reason);
}
