// SPDX-License-Identifier: MIT
//
// The errno of a call that failed is read before anything is allocated for the exception.
#include "support/failing_memory.h"
#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;
namespace Memory = Zorbe::Test::Memory;

namespace {

class LoopErrnoTest : public InotifyTest {
 protected:
  /// What a turn throws when each allocation leaves another errno.
  std::string refusalOfTurn() {
    Memory::leaveErrno(EXDEV);
    std::string refusal = refusalOf([this] { loop->turn(0); });
    Memory::leaveErrno(0);
    return refusal;
  }
};

}  // namespace

TEST_F(LoopErrnoTest, OfTheWaitIsKept) {
  Fault::arm("epoll_wait", 1, EBADF);
  EXPECT_EQ("EventLoop epoll_wait(): Bad file descriptor", refusalOfTurn());
}

TEST_F(LoopErrnoTest, OfTheTimerIsKept) {
  TimerProbe timer;
  timer.control->start(1000);
  Fault::arm("timerfd_settime", 1, EINVAL);
  EXPECT_EQ("EventLoop timerfd_settime(): Invalid argument", refusalOfTurn());
}

TEST_F(LoopErrnoTest, OfTheStopRequestIsKept) {
  loop->stop();
  Fault::arm("read", 1, EIO);
  EXPECT_EQ("EventLoop read(eventfd): Input/output error", refusalOfTurn());
}

TEST_F(LoopErrnoTest, OfTheEventsIsKept) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE);
  directory.make("one");
  Fault::arm("read", 1, EIO);
  EXPECT_EQ("EventLoop read(inotify): Input/output error", refusalOfTurn());
}
