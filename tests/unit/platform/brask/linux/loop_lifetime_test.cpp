// SPDX-License-Identifier: MIT
//
// Loops and controls that begin and end in any order, and what refuses to be used.
#include <algorithm>
#include <cerrno>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "support/descriptor_zero.h"
#include "unit/platform/brask/linux/loop_fixture.h"

using Brask::Linux::EventLoop;
using namespace LoopTesting;

namespace {

class LoopLifetimeTest : public LoopTest {
 protected:
  ~LoopLifetimeTest() override { Fault::reset(); }
};

}  // namespace

TEST_F(LoopLifetimeTest, EachRefusalSaysWhatIsMissing) {
  EXPECT_EQ("this thread has an event loop already", textOf<std::logic_error>([] { EventLoop(); }));
  TimerProbe timer;
  loop.reset();
  EXPECT_EQ("this thread has no event loop",
            textOf<std::logic_error>([] { EventLoop::current(); }));
  EXPECT_EQ("this thread has no event loop",
            textOf<std::logic_error>([] { Brask::Platform::getTimerControl(nullptr); }));
  EXPECT_EQ("the event loop of this control is gone",
            textOf<std::logic_error>([&] { timer.control->cancel(); }));
}

TEST_F(LoopLifetimeTest, ControlsKnowThatTheirLoopIsGoneWhicheverWereDeletedBefore) {
  constexpr size_t kControls = 4;
  std::vector<size_t> order(kControls);
  std::iota(order.begin(), order.end(), 0);
  do {
    for (size_t deleted = 0; deleted < kControls; ++deleted) {
      std::unique_ptr<TimerProbe> timers[kControls];
      for (auto& timer : timers) timer = std::make_unique<TimerProbe>();
      for (size_t each = 0; each < deleted; ++each) timers[order[each]].reset();
      loop.reset();
      for (size_t each = deleted; each < kControls; ++each) {
        EXPECT_THROW(timers[order[each]]->control->cancel(), std::logic_error);
      }
      loop = std::make_unique<EventLoop>();
    }
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(LoopLifetimeTest, DescriptorZeroServesTheLoopLikeAnyOther) {
  loop.reset();
  const Zorbe::Test::DescriptorZero zero;
  for (const char* call : {"epoll_create1", "timerfd_create", "eventfd"}) {
    zero.free();
    ASSERT_FALSE(Zorbe::Test::DescriptorZero::isOpen());
    const int filled = ::fcntl(2, F_DUPFD_CLOEXEC, 0);
    ASSERT_EQ(0, filled);
    zero.freeBefore(call);
    loop = std::make_unique<EventLoop>();
    EXPECT_TRUE(Zorbe::Test::DescriptorZero::isOpen()) << call;
    TimerProbe timer;
    timer.control->start(0.001);
    EXPECT_TRUE(loop->turn(kPatience));
    loop.reset();
    EXPECT_FALSE(Zorbe::Test::DescriptorZero::isOpen()) << call;
    Fault::reset();
  }
}

TEST_F(LoopLifetimeTest, DescriptorZeroServesInotifyLikeAnyOther) {
  const Zorbe::Test::DescriptorZero zero;
  Directory directory;
  zero.freeBefore("inotify_init1");
  {
    InotifyProbe probe;
    probe.control->addWatch(directory.path, 0x100);  // IN_CREATE
    EXPECT_TRUE(Zorbe::Test::DescriptorZero::isOpen());
    directory.make("new");
    settle();
    EXPECT_EQ(std::vector<std::string>{"changed new"}, probe.reports);
  }
  loop.reset();
  EXPECT_FALSE(Zorbe::Test::DescriptorZero::isOpen());
}

TEST_F(LoopLifetimeTest, AStopThatCannotBeWrittenLeavesErrnoAlone) {
  const auto refused = Fault::arm("write", 1, EAGAIN);
  errno = E2BIG;
  loop->stop();
  EXPECT_EQ(E2BIG, errno);
  EXPECT_EQ(1u, refused.fired());
  loop->run();
}

TEST_F(LoopLifetimeTest, ARunThatWasStoppedLeavesFdUnreadable) {
  const int fd = loop->fd();
  loop->stop();
  loop->run();
  EXPECT_FALSE(readable(fd));
}
