// SPDX-License-Identifier: MIT
//
// Timers that are moved and cancelled in any order, compared with a sorted list.
#include <algorithm>
#include <memory>
#include <random>

#include "unit/platform/brask/linux/timer_fixture.h"
#include "unit/platform/brask/linux/virtual_time.h"

using namespace LoopTesting;

namespace {

class TimerHeapTest : public TimerTest {
 protected:
  // Everything that is due by then, as one string of the timers' letters.
  std::string dueBy(long milliseconds) {
    order.clear();
    VirtualTime::advanceTo(1000 * milliseconds);
    settle();
    return order;
  }

  VirtualTime time_;
};

// What a queue of timers is to do, kept as simple as can be.
class SortedTimers {
 public:
  void start(int timer, long expiry) {
    cancel(timer);
    const auto later = [expiry](const Entry& entry) { return entry.expiry > expiry; };
    entries_.insert(std::find_if(entries_.begin(), entries_.end(), later), {expiry, timer});
  }
  void cancel(int timer) {
    const auto same = [timer](const Entry& entry) { return entry.timer == timer; };
    entries_.erase(std::remove_if(entries_.begin(), entries_.end(), same), entries_.end());
  }
  std::vector<int> takeDue(long now) {
    std::vector<int> due;
    while (!entries_.empty() && entries_.front().expiry <= now) {
      due.push_back(entries_.front().timer);
      entries_.erase(entries_.begin());
    }
    return due;
  }

 private:
  struct Entry {
    long expiry;
    int timer;
  };
  std::vector<Entry> entries_;
};

}  // namespace

TEST_F(TimerHeapTest, ATimerThatIsMovedBehindAnotherDoesNotHoldItUp) {
  const auto moved = letter('m'), other = letter('o');
  moved->control->start(0.1);
  other->control->start(0.2);
  moved->control->start(1.0);
  EXPECT_EQ("", dueBy(199));
  EXPECT_EQ("o", dueBy(200));
  EXPECT_EQ("", dueBy(999));
  EXPECT_EQ("m", dueBy(1000));
}

TEST_F(TimerHeapTest, ATimerThatIsMovedBeforeOthersRunsBeforeThem) {
  const auto a = letter('a'), b = letter('b'), moved = letter('m');
  a->control->start(0.1);
  b->control->start(0.2);
  moved->control->start(0.3);
  moved->control->start(0.05);
  EXPECT_EQ("m", dueBy(50));
  EXPECT_EQ("ab", dueBy(200));
}

TEST_F(TimerHeapTest, TimersThatAreDueAtTheSameTimeRunInOrderOfTheirLatestStart) {
  const auto a = letter('a'), b = letter('b'), c = letter('c'), d = letter('d');
  start(0.1, a, b, c, d, b);
  EXPECT_EQ("acdb", dueBy(100));
}

TEST_F(TimerHeapTest, MovesAndCancellationsAtRandomKeepTheOrder) {
  constexpr int kTimers = 60;
  constexpr long kTick = 15625;  // microseconds: 2^-6 s, which is a whole number of nanoseconds
  std::mt19937 random(7);
  SortedTimers expected;
  std::vector<int> ran;
  std::vector<std::unique_ptr<TimerProbe>> timers;
  for (int each = 0; each < kTimers; ++each) {
    timers.push_back(std::make_unique<TimerProbe>([&ran, each] { ran.push_back(each); }));
  }
  long now = 0;
  for (int step = 0; step < 3000; ++step) {
    const int timer = static_cast<int>(random() % kTimers);
    const long delay = 1 + static_cast<long>(random() % 20);
    if (random() % 4 == 0) {
      timers[static_cast<size_t>(timer)]->control->cancel();
      expected.cancel(timer);
    } else {
      timers[static_cast<size_t>(timer)]->control->start(static_cast<double>(delay) / 64);
      expected.start(timer, now + delay);
    }
    if (random() % 8 != 0) continue;
    now += static_cast<long>(random() % 3);
    VirtualTime::advanceTo(now * kTick);
    settle();
    ASSERT_EQ(expected.takeDue(now), ran) << "step " << step;
    ran.clear();
  }
}

TEST_F(TimerHeapTest, NothingIsAheadOfItsTime) {
  const auto timer = letter('t');
  VirtualTime::advanceTo(500000);
  timer->control->start(0.25);
  EXPECT_EQ("", dueBy(749));
  EXPECT_EQ("t", dueBy(750));
}
