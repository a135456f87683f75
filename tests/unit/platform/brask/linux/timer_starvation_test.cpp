// SPDX-License-Identifier: MIT
//
// Timers beside a control that asks again and again for a watch that is refused.
#include <sys/inotify.h>

#include <memory>
#include <stdexcept>

#include "unit/platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;

namespace {

class TimerStarvationTest : public LoopTest {};

// Asks again for a watch that is refused, for as long as it lives.
struct Insistent : Brask::Platform::InotifyHandler {
  void inotifyError(const std::string&) override {
    ++refusals;
    control->addWatch("/nonexistent/directory", IN_CREATE);
    if (throws) throw std::runtime_error("refused");
  }
  void inotifyDeleted() override {}
  void inotifyChanged(const std::string&) override {}

  int refusals = 0;
  bool throws = false;
  std::unique_ptr<Brask::Platform::InotifyControl> control{
      Brask::Platform::getInotifyControl(this)};
};

}  // namespace

TEST_F(TimerStarvationTest, ARefusedWatchThatIsAskedForAgainHoldsUpNoTimer) {
  Insistent insistent;
  insistent.control->addWatch("/nonexistent/directory", IN_CREATE);
  TimerProbe timer;
  timer.control->start(0.01);
  EXPECT_TRUE(turnUntil([&] { return timer.timeouts == 1; }));
  EXPECT_GT(insistent.refusals, 0);
  timer.control->start(0.01);
  EXPECT_TRUE(turnUntil([&] { return timer.timeouts == 2; })) << "the alarm was set before";
}

TEST_F(TimerStarvationTest, AHandlerThatThrowsWheneverItsWatchIsRefusedHoldsUpNoTimer) {
  Insistent insistent;
  insistent.throws = true;
  insistent.control->addWatch("/nonexistent/directory", IN_CREATE);
  TimerProbe timer;
  timer.control->start(0.0);
  for (int turns = 0; turns < 4; ++turns) {
    try {
      loop->turn(0);
    } catch (const std::runtime_error&) {
    }
  }
  EXPECT_EQ(1, timer.timeouts);
  EXPECT_GT(insistent.refusals, 0);
}
