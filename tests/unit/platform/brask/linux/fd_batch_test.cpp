// SPDX-License-Identifier: MIT
//
// Descriptors reported in one batch, and callbacks that change which controls are next.
#include <sys/eventfd.h>

#include <memory>

#include "unit/platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;

namespace {

class FdBatchTest : public LoopTest {
 protected:
  // Makes both ready in one batch and turns once. The one that is called first
  // calls `whenFirst` with the index of the other.
  void turnBoth(const std::function<void(int)>& whenFirst) {
    for (int each : {0, 1}) {
      probes[each] = std::make_unique<FdProbe>();
      probes[each]->onEvent = [=](int) {
        if (events++ == 0) whenFirst(1 - each);
      };
      probes[each]->control->watch(pairs[each].here);
      pairs[each].makeReady();
    }
    EXPECT_TRUE(loop->turn(0));
  }

  Pair pairs[2];
  std::unique_ptr<FdProbe> probes[2];
  int events = 0;
};

int duplicateAt(int source, int number) {
  return ::dup3(source, number, O_CLOEXEC);
}

}  // namespace

TEST_F(FdBatchTest, ACallbackMayDeleteItsOwnHandlerAndControl) {
  auto* probe = new FdProbe;
  probe->onEvent = [&](int) {
    ++events;
    delete probe;
  };
  probe->control->watch(pairs[0].here);
  pairs[0].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(1, events);
}

TEST_F(FdBatchTest, ADeletedControlIsNotNotifiedOfTheSameBatch) {
  turnBoth([this](int other) { probes[other].reset(); });
  EXPECT_EQ(1, events);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(2, events);
}

TEST_F(FdBatchTest, AnUnwatchedControlIsNotNotifiedOfTheSameBatch) {
  turnBoth([this](int other) { probes[other]->control->unwatch(); });
  EXPECT_EQ(1, events);
}

TEST_F(FdBatchTest, ARewatchedDescriptorIsReportedByTheNextTurn) {
  turnBoth([this](int other) { probes[other]->control->watch(pairs[other].here); });
  EXPECT_EQ(1, events);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(3, events);
}

TEST_F(FdBatchTest, ANumberReusedWithinABatchDoesNotInheritTheEvent) {
  Pair silent;
  FdProbe fresh;
  turnBoth([&](int other) {
    const int number = pairs[other].here;
    pairs[other].closeHere();
    ASSERT_EQ(number, duplicateAt(silent.here, number));
    pairs[other].here = number;
    fresh.control->watch(number);
  });
  EXPECT_EQ(1, events);
  EXPECT_EQ(0, fresh.events);
  silent.makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, fresh.events);
}

TEST_F(FdBatchTest, ATakenOverDescriptorIsReportedToTheNewControlOnly) {
  FdProbe taker;
  turnBoth([&](int other) { taker.control->watch(pairs[other].here); });
  EXPECT_EQ(1, events);
  EXPECT_EQ(0, taker.events);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, taker.events);
}

TEST_F(FdBatchTest, ADescriptorThatIsReadyWhenWatchedInACallbackIsReported) {
  FdProbe second;
  FdProbe first([&](int) { second.control->watch(pairs[1].here); });
  first.control->watch(pairs[0].here);
  pairs[0].makeReady();
  pairs[1].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(0, second.events);
  first.control->unwatch();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, second.events);
}

TEST_F(FdBatchTest, ADescriptorClosedWhileADuplicateIsOpenDoesNotKeepTheLoopBusy) {
  FdProbe probe;
  FdProbe other;
  probe.control->watch(pairs[0].here);
  other.control->watch(pairs[1].here);
  const int duplicate = ::fcntl(pairs[0].here, F_DUPFD_CLOEXEC, 0);
  pairs[0].makeReady();
  pairs[0].closeHere();
  probe.control->unwatch();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_FALSE(readable(loop->fd()));
  pairs[1].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(0, probe.events);
  EXPECT_EQ(1, other.events);
  ::close(duplicate);
}

TEST_F(FdBatchTest, MoreDescriptorsThanFitABatchAreAllReported) {
  constexpr int many = 3000;
  const int source = ::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
  std::vector<std::unique_ptr<FdProbe>> all;
  std::vector<int> duplicates;
  for (int each = 0; each < many; ++each) {
    duplicates.push_back(::fcntl(source, F_DUPFD_CLOEXEC, 0));
    ASSERT_GE(duplicates.back(), 0);
    all.push_back(std::make_unique<FdProbe>());
    all.back()->control->watch(duplicates.back());
  }
  TimerProbe timer;
  timer.control->start(1e-9);
  for (int turns = 0; turns < 4; ++turns) EXPECT_TRUE(loop->turn(0));
  for (const auto& probe : all) EXPECT_GE(probe->events, 1);
  EXPECT_EQ(1, timer.timeouts);
  all.clear();
  for (const int duplicate : duplicates) ::close(duplicate);
  ::close(source);
}
