// SPDX-License-Identifier: MIT
//
// The system calls of a turn, counted in a traced child.
#include "support/child_process.h"
#include "support/tracer.h"
#include "unit/platform/brask/linux/busy_handlers.h"

#include <algorithm>

using namespace LoopTesting;

namespace {

void mark() {
  Zorbe::Test::SystemCallTrace::mark();
}

// Runs in the traced child, where the loop is the child's own.
struct Traced {
  Brask::Linux::EventLoop loop;
  Pair pair;
  Reader reader;
  Traced() {
    reader.control->watch(pair.here);
    pair.makeReady();
    loop.turn(0);
  }
};

class LoopSystemCallsTest : public ::testing::Test {
 protected:
  /// The calls that `scenario` makes in a traced child, between its two mark()s.
  void count(const std::function<void()>& scenario) {
    Zorbe::Test::ChildProcess child("traced", [&scenario](Zorbe::Test::Channel& parent) {
      parent.await("begin");
      scenario();
    });
    Zorbe::Test::SystemCallTrace trace;
    if (!trace.watch(child.pid())) GTEST_SKIP() << "cannot trace a child";
    child.send("begin");
    trace.run();
    calls = trace.calls(child.pid());
    EXPECT_EQ(child.finish(), 0);
  }

  long waits() const { return std::count(calls.begin(), calls.end(), "epoll_wait"); }
  long all() const { return static_cast<long>(calls.size()); }

  std::vector<std::string> calls;
};

}  // namespace

TEST_F(LoopSystemCallsTest, ATurnWithADescriptorEventIsOneWait) {
  count([] {
    Traced traced;
    mark();
    for (int each = 0; each < kTurns; ++each) traced.loop.turn(0);
    mark();
  });
  EXPECT_EQ(kTurns, waits());
  EXPECT_EQ(kTurns, all());
}

TEST_F(LoopSystemCallsTest, ATurnWithManyReadyDescriptorsIsOneWait) {
  count([] {
    Traced traced;
    Pair pairs[20];
    Reader readers[20];
    for (int each = 0; each < 20; ++each) {
      readers[each].control->watch(pairs[each].here);
      pairs[each].makeReady();
    }
    traced.loop.turn(0);
    mark();
    for (int each = 0; each < kTurns; ++each) traced.loop.turn(0);
    mark();
    if (readers[19].events != kTurns + 1) ::_exit(1);
  });
  EXPECT_EQ(kTurns, all());
}

TEST_F(LoopSystemCallsTest, ATurnWithARearmedZeroTimerIsOneWait) {
  count([] {
    Brask::Linux::EventLoop loop;
    Ticker ticker;
    ticker.control->start(0.0);
    mark();
    for (int each = 0; each < kTurns - 1; ++each) loop.turn(0);
    mark();
  });
  EXPECT_EQ(kTurns - 1, waits());
  EXPECT_EQ(kTurns - 1, all());
}

TEST_F(LoopSystemCallsTest, ARunWithARearmedZeroTimerIsOneWaitATurn) {
  count([] {
    Brask::Linux::EventLoop loop;
    Ticker ticker;
    ticker.control->start(0.0);
    mark();
    loop.run();
    mark();
  });
  EXPECT_EQ(kTurns, waits());
  EXPECT_LE(all(), kTurns + 2) << "the stop itself costs a write and a read";
}

TEST_F(LoopSystemCallsTest, ANestedLoopWithARearmedZeroTimerIsOneWaitATurn) {
  count([] {
    Brask::Linux::EventLoop loop;
    Ticker ticker;
    ticker.control->start(0.0);
    static_cast<void>(loop.fd());
    loop.turn(0);
    mark();
    for (int each = 0; each < kTurns - 2; ++each) loop.turn(0);
    mark();
  });
  EXPECT_EQ(kTurns - 2, all());
}

TEST_F(LoopSystemCallsTest, TimersAfterTheEarliestCostNoCall) {
  count([] {
    Brask::Linux::EventLoop loop;
    static_cast<void>(loop.fd());  // as strict as it gets: somebody polls the loop
    Ticker earliest, other;
    earliest.control->start(100.0);
    mark();
    for (int each = 0; each < kTurns; ++each) {
      other.control->start(200.0 + each);
      if (each % 2 == 0) other.control->cancel();
    }
    mark();
  });
  EXPECT_EQ(0, all());
}

TEST_F(LoopSystemCallsTest, CancellingATimerThatIsNotArmedCostsNoCall) {
  count([] {
    Traced traced;
    static_cast<void>(traced.loop.fd());
    Ticker ticker;
    mark();
    for (int each = 0; each < kTurns; ++each) ticker.control->cancel();
    mark();
  });
  EXPECT_EQ(0, all());
}

TEST_F(LoopSystemCallsTest, AnArmedTimerAddsNoCallToDescriptorEvents) {
  count([] {
    Traced traced;
    Ticker ticker;
    ticker.control->start(100.0);
    traced.loop.turn(0);
    mark();
    for (int each = 0; each < kTurns; ++each) traced.loop.turn(0);
    mark();
  });
  EXPECT_EQ(kTurns, all());
}

TEST_F(LoopSystemCallsTest, SilentDescriptorsAddNoCall) {
  count([] {
    Traced traced;
    Crowd crowd(500);
    traced.loop.turn(0);
    mark();
    for (int each = 0; each < kTurns; ++each) traced.loop.turn(0);
    mark();
  });
  EXPECT_EQ(kTurns, all());
}
