// SPDX-License-Identifier: MIT
#include "support/fixture.h"

#include <brask/linux/event_loop.h>
#include <brask/platform.h>

#include <poll.h>

#include <memory>
#include <stdexcept>
#include <thread>

namespace Zorbe::Test {
namespace {

using Brask::Linux::EventLoop;

class UnboundLoop : public ZorbeTest {
 protected:
  struct Counter : Brask::Platform::TimeoutHandler {
    void timeout() override {
      ++calls;
      current = &EventLoop::current();
    }
    unsigned calls = 0;
    EventLoop* current = nullptr;
  };

  static std::unique_ptr<Brask::Platform::TimerControl> timerFor(Counter& counter) {
    return std::unique_ptr<Brask::Platform::TimerControl>(
        Brask::Platform::getTimerControl(&counter));
  }
};

TEST_F(UnboundLoop, IsNobodysLoopUntilItIsUsed) {
  EventLoop loop{EventLoop::Unbound{}};
  EXPECT_THROW(EventLoop::current(), std::logic_error);
  {
    const EventLoop::Use use(loop);
    EXPECT_EQ(&EventLoop::current(), &loop);
  }
  EXPECT_THROW(EventLoop::current(), std::logic_error);
}

TEST_F(UnboundLoop, UsesNestAndGiveTheThreadItsOwnLoopBack) {
  EventLoop own;
  EventLoop first{EventLoop::Unbound{}};
  EventLoop second{EventLoop::Unbound{}};
  {
    const EventLoop::Use useFirst(first);
    {
      const EventLoop::Use useSecond(second);
      EXPECT_EQ(&EventLoop::current(), &second);
    }
    EXPECT_EQ(&EventLoop::current(), &first);
  }
  EXPECT_EQ(&EventLoop::current(), &own);
}

TEST_F(UnboundLoop, ItsCallbacksFindItWhoeverTurnsIt) {
  EventLoop own;
  EventLoop loop{EventLoop::Unbound{}};
  Counter counter;
  const auto timer = [&] {
    const EventLoop::Use use(loop);
    return timerFor(counter);
  }();
  timer->start(0.0);
  EXPECT_TRUE(loop.turn(0));
  EXPECT_EQ(counter.current, &loop);
  EXPECT_EQ(&EventLoop::current(), &own);
  timer->start(0.0);
  std::thread([&] { EXPECT_TRUE(loop.turn(0)); }).join();
  EXPECT_EQ(counter.calls, 2u);
}

TEST_F(UnboundLoop, RunsOnAnyThread) {
  EventLoop loop{EventLoop::Unbound{}};
  std::thread thread([&] { loop.run(); });
  loop.stop();
  thread.join();
}

TEST_F(UnboundLoop, AnExceptionOutOfACallbackGivesTheFormerLoopBack) {
  struct Thrower : Brask::Platform::TimeoutHandler {
    void timeout() override { throw std::runtime_error("from a callback"); }
  };
  EventLoop loop{EventLoop::Unbound{}};
  Thrower thrower;
  std::unique_ptr<Brask::Platform::TimerControl> timer;
  {
    const EventLoop::Use use(loop);
    timer.reset(Brask::Platform::getTimerControl(&thrower));
  }
  timer->start(0.0);
  EXPECT_THROW(loop.turn(0), std::runtime_error);
  EXPECT_THROW(EventLoop::current(), std::logic_error);
}

// One thread waits for the descriptor, another one starts a timer.
TEST_F(UnboundLoop, ATimerStartedElsewhereWakesWhoWaitsForTheDescriptor) {
  EventLoop loop{EventLoop::Unbound{}};
  Counter counter;
  std::unique_ptr<Brask::Platform::TimerControl> timer;
  {
    const EventLoop::Use use(loop);
    timer = timerFor(counter);
  }
  pollfd waiting{loop.fd(), POLLIN, 0};
  ASSERT_EQ(::poll(&waiting, 1, 0), 0);
  std::thread([&] { timer->start(0.001); }).join();
  EXPECT_EQ(::poll(&waiting, 1, 10'000), 1);
  EXPECT_TRUE(loop.turn(0));
  EXPECT_EQ(counter.calls, 1u);
}

}  // namespace
}  // namespace Zorbe::Test
