// SPDX-License-Identifier: MIT
//
// What is done to one among many costs the same however many there are: instructions, counted in
// a traced child.
#include <sys/resource.h>

#include <memory>

#include "unit/platform/brask/linux/busy_handlers.h"
#include "unit/platform/brask/linux/listener.h"
#include "unit/platform/brask/linux/steps.h"

using Brask::Linux::EventLoop;
using namespace LoopTesting;

namespace {

constexpr int kFew = 400;
constexpr int kMany = 8 * kFew;

struct Silent : Brask::Platform::TimeoutHandler {
  void timeout() override {}
};

// Timers that are armed and not due.
class ArmedTimers {
 public:
  explicit ArmedTimers(int count) {
    for (int each = 0; each < count; ++each) {
      timers_.emplace_back(Brask::Platform::getTimerControl(&handler_));
      timers_.back()->start(1000.0 + each);
    }
  }

 private:
  Silent handler_;
  std::vector<std::unique_ptr<Brask::Platform::TimerControl>> timers_;
};

// Each of the others may have a descriptor.
void expectNoMoreAmongDescriptors(int many, int few,
                                  const std::function<void(int, const Counted&)>& scenario) {
  rlimit limit{};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &limit));
  const auto needed = static_cast<rlim_t>(many) + 300;
  if (limit.rlim_max < needed) GTEST_SKIP() << "may not open " << needed << " descriptors";
  limit.rlim_cur = limit.rlim_max;
  expectNoMoreAmong(many, few, [&](int others, const Counted& counted) {
    EXPECT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &limit));
    scenario(others, counted);
  });
}

void expectTheSameAmongMany(const std::function<void(int, const Counted&)>& scenario) {
  expectNoMoreAmongDescriptors(kMany, kFew, scenario);
}

constexpr int kTimes = 4;

}  // namespace

TEST(LoopStepsTest, AConnectionIsAcceptedWatchedAndUnwatchedAsFastAmongMany) {
  expectTheSameAmongMany([](int others, const Counted& counted) {
    EventLoop loop;
    Listener listener;
    FdProbe connections[kTimes];
    int accepted = 0;
    FdProbe acceptor([&](int fd) {
      connections[accepted++].control->watch(::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC));
    });
    acceptor.control->watch(listener.fd);
    const Crowd crowd(static_cast<size_t>(others));
    for (int each = 0; each < kTimes; ++each) listener.connect();
    counted([&] {
      while (accepted < kTimes) loop.turn(0);
    });
    counted([&] {
      for (FdProbe& connection : connections) connection.control->unwatch();
    });
  });
}

TEST(LoopStepsTest, ADescriptorIsReplacedAsFastAmongMany) {
  expectTheSameAmongMany([](int others, const Counted& counted) {
    EventLoop loop;
    const Crowd crowd(static_cast<size_t>(others));
    Pair pairs[2];
    FdProbe probe;
    for (const Pair& pair : pairs) probe.control->watch(pair.here);
    counted([&] {
      for (int each = 0; each < kTimes; ++each) probe.control->watch(pairs[each % 2].here);
    });
  });
}

TEST(LoopStepsTest, AnEventIsDispatchedAsFastAmongMany) {
  expectTheSameAmongMany([](int others, const Counted& counted) {
    EventLoop loop;
    const Crowd crowd(static_cast<size_t>(others));
    const ArmedTimers timers(others);
    loop.turn(0);
    counted([&] {
      for (int each = 0; each < kTimes; ++each) loop.turn(0);
    });
    EXPECT_EQ(kTimes + 1, crowd.events());
  });
}

TEST(LoopStepsTest, TenThousandWatchedDescriptorsCostATurnNoMoreThanTen) {
  expectNoMoreAmongDescriptors(10000, 10, [](int others, const Counted& counted) {
    EventLoop loop;
    const Crowd crowd(static_cast<size_t>(others));
    loop.turn(0);
    counted([&] {
      for (int each = 0; each < kTimes; ++each) loop.turn(0);
    });
    EXPECT_EQ(kTimes + 1, crowd.events());
  });
}

TEST(LoopStepsTest, ATimerIsMadeAndDeletedAsFastAmongMany) {
  expectTheSameAmongMany([](int others, const Counted& counted) {
    const EventLoop loop;
    const ArmedTimers armed(others);
    Silent handler;
    std::unique_ptr<Brask::Platform::TimerControl> timers[kTimes];
    counted([&] {
      for (auto& timer : timers) timer.reset(Brask::Platform::getTimerControl(&handler));
    });
    counted([&] {
      for (auto& timer : timers) timer.reset();
    });
  });
}

TEST(LoopStepsTest, ATimerIsStartedMovedAndCancelledAsFastAmongMany) {
  expectTheSameAmongMany([](int others, const Counted& counted) {
    const EventLoop loop;
    const ArmedTimers armed(others);
    TimerProbe timer;
    counted([&] {
      for (int each = 0; each < kTimes; ++each) {
        timer.control->start(500.0);
        timer.control->start(5000000.0);
        timer.control->start(0.0);
        timer.control->cancel();
      }
    });
  });
}

TEST(LoopStepsTest, AZeroTimerRunsAsFastAmongMany) {
  expectTheSameAmongMany([](int others, const Counted& counted) {
    EventLoop loop;
    const ArmedTimers armed(others);
    Ticker ticker;
    ticker.control->start(0.0);
    loop.turn(0);
    counted([&] {
      for (int each = 0; each < kTimes; ++each) loop.turn(0);
    });
  });
}
