// SPDX-License-Identifier: MIT
//
// When a listening descriptor that nobody can accept from is paused, when the loop looks whether
// descriptors are available again, and what else is never paused.
#include <cerrno>

#include "support/descriptor_zero.h"
#include "unit/platform/brask/linux/listener.h"
#include "unit/platform/brask/linux/loop_fixture.h"
#include "unit/platform/brask/linux/virtual_time.h"

using namespace LoopTesting;

namespace {

// Ready turns in a row before the loop suspects that descriptors are exhausted.
constexpr int kStreak = 16;

class ListenerPauseTest : public LoopTest {
 protected:
  ListenerPauseTest() {
    listener.connect();
    loop->turn(0);
    probe.control->watch(listener.fd);
    probesBefore_ = Fault::calls("eventfd");
  }

  // The loop finds no descriptor, at most so many times.
  static Fault::Armed exhaust(unsigned times = Fault::kForever) {
    return Fault::arm("eventfd", 1, EMFILE, times);
  }

  // How often the loop has looked for a free descriptor.
  unsigned probes() const { return Fault::calls("eventfd") - probesBefore_; }

  int turns(int count) {
    int ran = 0;
    for (int each = 0; each < count; ++each) ran += loop->turn(0) ? 1 : 0;
    return ran;
  }

  VirtualTime time;
  Listener listener;
  FdProbe probe;

 private:
  unsigned probesBefore_ = 0;
};

}  // namespace

TEST_F(ListenerPauseTest, IsPausedAfterSixteenEventsInARow) {
  exhaust();
  EXPECT_EQ(kStreak, turns(kStreak));
  EXPECT_EQ(0u, probes());
  EXPECT_FALSE(loop->turn(0)) << "the turn that pauses it calls nobody";
  EXPECT_EQ(1u, probes());
  EXPECT_EQ(0, turns(10));
  EXPECT_EQ(kStreak, probe.events);
  EXPECT_EQ(1u, probes());
}

TEST_F(ListenerPauseTest, DescriptorsAreLookedForTwentyTimesASecond) {
  exhaust();
  turns(kStreak + 2);
  EXPECT_EQ(1u, probes());
  VirtualTime::advanceTo(49999);
  turns(2);
  EXPECT_EQ(1u, probes());
  VirtualTime::advanceTo(50000);
  turns(2);
  EXPECT_EQ(2u, probes());
  VirtualTime::advanceTo(100000);
  turns(2);
  EXPECT_EQ(3u, probes());
}

TEST_F(ListenerPauseTest, ALoopThatIsPolledFromOutsideAsksForTheTurnThatLooks) {
  static_cast<void>(loop->fd());
  exhaust();
  turns(kStreak + 1);
  ASSERT_EQ(1u, probes());
  EXPECT_TRUE(readable(loop->fd()));
  VirtualTime::advanceTo(50000);
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(2u, probes());
}

TEST_F(ListenerPauseTest, ContinuesWhenThereAreDescriptorsAndIsPausedAgainWhenThereAreNone) {
  exhaust(1);
  turns(kStreak + 2);
  VirtualTime::advanceTo(50000);
  turns(2);
  EXPECT_EQ(kStreak + 1, probe.events);
  exhaust();
  turns(3 * kStreak);
  const int events = probe.events;
  EXPECT_LE(events, 2 * kStreak + 2);
  EXPECT_EQ(0, turns(5));
  EXPECT_EQ(events, probe.events);
}

TEST_F(ListenerPauseTest, ABusyListenerIsNotSuspectedAgainBeforeSixteenFurtherEvents) {
  EXPECT_EQ(8 * kStreak, turns(8 * kStreak));
  EXPECT_EQ(7u, probes());
}

TEST_F(ListenerPauseTest, ATurnInWhichItIsNotReadyBeginsTheCountAgain) {
  exhaust();
  for (int rounds = 0; rounds < 3; ++rounds) {
    EXPECT_EQ(kStreak, turns(kStreak));
    ::close(::accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC));
    EXPECT_FALSE(loop->turn(0));
    listener.connect();
  }
  EXPECT_EQ(0u, probes());
}

TEST_F(ListenerPauseTest, DescriptorZeroIsADescriptor) {
  const Zorbe::Test::DescriptorZero zero;
  zero.free();
  EXPECT_EQ(2 * kStreak, turns(2 * kStreak));
  EXPECT_EQ(1u, probes());
  EXPECT_FALSE(Zorbe::Test::DescriptorZero::isOpen());
}

TEST_F(ListenerPauseTest, AConnectionIsNeverPaused) {
  exhaust();
  probe.control->unwatch();
  Pair pair;
  FdProbe connection;
  connection.control->watch(pair.here);
  pair.makeReady();
  EXPECT_EQ(3 * kStreak, turns(3 * kStreak));
  EXPECT_EQ(0u, probes());
}

TEST_F(ListenerPauseTest, IsNotLookedAfterOnceAnotherControlHasTakenItOver) {
  exhaust();
  turns(kStreak + 2);
  FdProbe taker;
  taker.control->watch(listener.fd);
  VirtualTime::advanceTo(50000);
  EXPECT_EQ(2, turns(2));
  EXPECT_EQ(2, taker.events);
  EXPECT_EQ(1u, probes());
  EXPECT_EQ(kStreak, probe.events);
}
