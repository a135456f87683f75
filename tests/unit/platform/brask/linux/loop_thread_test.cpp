// SPDX-License-Identifier: MIT
//
// The loop and other threads: stop() from anywhere, a loop on each thread, and a loop that threads
// turn one after the other.
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "support/parallel.h"
#include "unit/platform/brask/linux/loop_fixture.h"

using Brask::Linux::EventLoop;
using namespace LoopTesting;
using Zorbe::Test::inParallel;

namespace {

class LoopThreadTest : public LoopTest {
 protected:
  // From here on every turn has something to do, and none waits.
  void keepBusy() {
    busy_.onTimeout = [this] { busy_.control->start(0.0); };
    busy_.control->start(0.0);
  }

  // Sends each byte that comes on `fd` back, `count` times, on a loop of the calling thread.
  static void answer(EventLoop& loop, int fd, int count) {
    TimerProbe timer;
    FdProbe probe;
    probe.onEvent = [&](int) {
      char byte = 0;
      EXPECT_EQ(1, ::recv(fd, &byte, 1, 0));
      EXPECT_EQ(1, ::send(fd, &byte, 1, MSG_NOSIGNAL));
      timer.control->start(0.0);
      if (probe.events == count) loop.stop();
    };
    probe.control->watch(fd);
    loop.run();
    EXPECT_EQ(count, probe.events);
    EXPECT_GT(timer.timeouts, 0);
  }

 private:
  TimerProbe busy_;
};

TEST_F(LoopThreadTest, WhatAThreadWroteBeforeItsStopIsSeenAfterRun) {
  constexpr int kRounds = 300;
  int written = 0;  // no atomic: stop() and run() are what orders its uses
  std::atomic<int> seen{0};
  keepBusy();
  std::thread other([&] {
    for (int round = 1; round <= kRounds; ++round) {
      while (seen.load() != round - 1) std::this_thread::yield();
      written = round;
      loop->stop();
    }
  });
  int wrong = 0;
  for (int round = 1; round <= kRounds; ++round) {
    loop->run();
    if (written != round) ++wrong;
    seen.store(round);
  }
  other.join();
  EXPECT_EQ(0, wrong);
}

TEST_F(LoopThreadTest, StopsOfManyThreadsEndEveryRunOfABusyLoop) {
  std::atomic<bool> finished{false};
  std::vector<std::thread> others;
  for (int i = 0; i < 3; ++i) {
    others.emplace_back([&] {
      while (!finished.load()) loop->stop();
    });
  }
  keepBusy();
  for (int round = 0; round < 300; ++round) {
    loop->run();
    EXPECT_TRUE(loop->turn(0));
  }
  finished.store(true);
  for (std::thread& other : others) other.join();
}

TEST_F(LoopThreadTest, TwoLoopsAnswerEachOther) {
  constexpr int kCount = 1000;
  Pair pair;
  ASSERT_EQ(1, ::send(pair.here, "x", 1, MSG_NOSIGNAL));
  std::thread other([&] {
    EventLoop own;
    answer(own, pair.there, kCount);
  });
  answer(*loop, pair.here, kCount);
  other.join();
}

TEST(UnboundLoopThreadTest, ThreadsTurnOneLoopOneAfterTheOther) {
  constexpr int kThreads = 4;
  constexpr int kEach = 200;
  EventLoop loop{EventLoop::Unbound{}};
  const EventLoop::Use use(loop);
  TimerProbe timer;
  std::mutex mutex;
  inParallel(kThreads, [&] {
    for (int i = 0; i < kEach; ++i) {
      const std::lock_guard lock(mutex);
      timer.control->start(0.0);
      EXPECT_TRUE(loop.turn(0));
    }
  });
  EXPECT_EQ(kThreads * kEach, timer.timeouts);
}

}  // namespace
