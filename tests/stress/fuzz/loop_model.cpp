// SPDX-License-Identifier: MIT
#include "stress/fuzz/loop_model.h"

#include <gtest/gtest.h>

#include <cmath>

namespace Zorbe::Test::Fuzz {

void LoopModel::watch(size_t control, int fd) {
  for (Watch& other : watched_) {
    if (other.fd == fd) other = Watch();  // the later takes it over
  }
  watched_[control] = {fd, ++count_};
}

void LoopModel::start(size_t timer, double seconds, int64_t now) {
  const double delay = seconds > 0 ? std::ceil(seconds * 1e9) : 0;
  armed_[timer] = {++count_, now + static_cast<int64_t>(delay)};
}

bool LoopModel::isDue(const Timer& timer) const {
  return timer.order != 0 && timer.order <= turnCount_ && timer.expiry <= turnNow_;
}

bool LoopModel::hasWork(int64_t now) const {
  for (const Watch& watch : watched_) {
    if (isReady(watch)) return true;
  }
  for (const Timer& timer : armed_) {
    if (timer.order != 0 && timer.expiry <= now) return true;
  }
  return false;
}

void LoopModel::beginTurn(int64_t now) {
  turnNow_ = now;
  turnCount_ = count_;
  callbacks_ = 0;
  mustRun_ = hasWork(now);
  if (!interrupted_) allowed_.clear();
  for (const Watch& watch : watched_) {
    if (isReady(watch)) allowed_.insert(watch.id);
  }
}

void LoopModel::fdEvent(size_t control, int fd) {
  ++callbacks_;
  const Watch& watch = watched_[control];
  EXPECT_NE(watch.fd, kNothing) << "its registration has ended";
  EXPECT_EQ(watch.fd, fd);
  EXPECT_EQ(allowed_.erase(watch.id), 1u) << "it was not ready, or was reported already";
}

void LoopModel::timeout(size_t timer) {
  ++callbacks_;
  const Timer ran = armed_[timer];
  EXPECT_TRUE(isDue(ran)) << "not armed, too early, or started in this turn";
  for (const Timer& other : armed_) {
    EXPECT_FALSE(isDue(other) && other.before(ran)) << "another one was due before it";
  }
  cancel(timer);
}

void LoopModel::endTurn(bool thrown) {
  if (mustRun_) EXPECT_NE(callbacks_, 0u);
  // A turn after an exception may deliver only what the one before has left.
  if (!thrown && !interrupted_) {
    for (const Watch& watch : watched_) {
      EXPECT_EQ(allowed_.count(watch.id), 0u) << "descriptor " << watch.fd << " was not reported";
    }
    for (const Timer& timer : armed_) EXPECT_FALSE(isDue(timer)) << "a due timer did not run";
  }
  interrupted_ = thrown;
}

}  // namespace Zorbe::Test::Fuzz
