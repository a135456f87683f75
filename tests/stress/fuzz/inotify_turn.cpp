// SPDX-License-Identifier: MIT
//
// The part of the model that decides which report comes next in a turn.
#include "stress/fuzz/inotify_model.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>

namespace Zorbe::Test::Fuzz {
namespace {

constexpr uint32_t kSelfBits = IN_DELETE_SELF | IN_MOVE_SELF;

}  // namespace

bool InotifyModel::isEnd() const {
  return (event_.mask & (IN_IGNORED | IN_UNMOUNT)) != 0;
}

bool InotifyModel::isOverflow() const {
  return (event_.mask & IN_Q_OVERFLOW) != 0;
}

bool InotifyModel::concerns(const Report& report) const {
  const Control& c = controls_[report.control];
  if (c.wd == 0 || c.since != report.since) return false;  // its registration has ended
  EXPECT_FALSE(event_.first < c.since && event_.last > c.since)
      << "it was merged with one from before the registration";
  if (event_.first < c.since) return false;
  return isEnd() || isOverflow() || (event_.mask & c.mask & IN_ALL_EVENTS) != 0;
}

void InotifyModel::take() {
  event_ = events_.front();
  events_.pop_front();
  --admitted_;
  if (isEnd()) {
    if (const auto found = users_.find(event_.wd); found != users_.end()) {
      for (const size_t user : found->second) controls_[user].lastEnd = kernel_.tick();
    }
    return takeEnd(event_.wd);
  }
  const auto report = [&](size_t control) { due_.push_back({control, controls_[control].since}); };
  if (isOverflow()) {
    for (size_t i = 0; i < kControls; ++i) {
      if (controls_[i].wd != 0) report(i);
    }
    const std::set<int> there = kernel_.takeList();
    for (const auto& [wd, users] : users_) {
      const auto isLater = [&](size_t user) { return controls_[user].since > event_.first; };
      if (there.count(wd) != 0 || std::any_of(users.begin(), users.end(), isLater)) continue;
      lost_.insert(wd);
      for (const size_t user : users) controls_[user].lastEnd = kernel_.tick();
    }
    return;
  }
  const auto found = users_.find(event_.wd);
  if (found == users_.end()) return;
  for (const size_t control : found->second) report(control);
}

void InotifyModel::takeEnd(int wd) {
  const auto found = users_.find(wd);
  if (found == users_.end()) return;
  for (const size_t control : found->second) {
    due_.push_back({control, controls_[control].since});
  }
  users_.erase(found);
}

// Is the control exempt from the report of its end?
InotifyModel::Exemption InotifyModel::exemptionFromEnd(size_t control) const {
  const Control& c = controls_[control];
  const bool mayBe = (c.mask & IN_DELETE) != 0 && (c.mask & kSelfBits) == 0 &&
                     (event_.mask & IN_UNMOUNT) == 0 && !Kernel::FakeInotify::isInner(c.directory);
  if (!mayBe) return {false, ""};
  for (const size_t i : othersOf(c.directory + 1, control)) {
    const Control& entry = controls_[i];
    if (entry.wd == 0 && !awaits(i, Kind::kRefusal) && !awaits(i, Kind::kEnd)) continue;
    if (c.removalReported) return {true, ""};
    if (entry.lastEnd > c.since) return {true, Kernel::FakeInotify::nameOf(entry.directory)};
  }
  return {false, ""};
}

InotifyModel::Moved InotifyModel::move(size_t control) {
  while (takeRead()) {  // waits for the loop's own read, or for the next turn
  }
  const Control& c = controls_[control];
  const int found = kernel_.look(c.directory, c.mask);
  if (found >= 0) {
    enter(control, found);
    return Moved::kYes;
  }
  if (found == -ENOENT) return Moved::kGone;
  refuse(control, -found);
  return Moved::kRefused;
}

// Does what needs no callback; true when one has to come.
bool InotifyModel::settle(const Report& report) {
  if (settled_) return true;
  if (!concerns(report)) return false;
  expectEnd_ = isEnd() || (!isOverflow() && (event_.mask & kSelfBits) != 0);
  expectRemoval_.clear();
  settled_ = true;
  if (!isEnd()) return true;
  const Exemption exemption = exemptionFromEnd(report.control);
  leave(report.control);
  if (!exemption.isExempt) return true;
  const Moved moved = move(report.control);
  if (moved == Moved::kRefused) return true;
  expectEnd_ = false;
  expectRemoval_ = exemption.removal;
  if (moved == Moved::kYes && !exemption.removal.empty()) return true;
  if (moved == Moved::kGone)
    notices_.push_back({report.control, Kind::kEnd, exemption.removal, turn_});
  settled_ = false;
  return false;
}

bool InotifyModel::takeRead() {
  const auto read = kernel_.takeRead();
  if (read) events_.insert(events_.end(), read->begin(), read->end());
  return read.has_value();
}

// Advances to the next event to report; false when there is none.
bool InotifyModel::settleEvents() {
  for (;;) {
    if (isOverflow()) {  // reported in any order
      const auto hasEnded = [&](const Report& report) { return !concerns(report); };
      due_.erase(std::remove_if(due_.begin(), due_.end(), hasEnded), due_.end());
      if (!due_.empty()) return true;
    }
    while (!due_.empty() && !settle(due_.front())) due_.pop_front();
    if (!due_.empty()) return true;
    if (!lost_.empty()) {
      const int wd = *lost_.begin();
      lost_.erase(lost_.begin());
      event_.mask = IN_IGNORED;
      takeEnd(wd);
    } else if (admitted_ != 0) {
      take();
    } else {
      return false;
    }
  }
}

// Likewise, with the loop's own read, which follows the rest of the turn before.
bool InotifyModel::settleBehindRead() {
  if (settleEvents()) return true;
  if (readDone_) return false;
  takeRead();  // unless it was taken with what a move has read
  readDone_ = true;
  admitted_ = events_.size();
  return settleEvents();
}

// Likewise. A turn after an exception continues with what the one before has left, and becomes
// a new one if nothing was.
bool InotifyModel::settleAll() {
  if (interrupted_ && callbacks_ == 0) {
    if (settleBehindRead()) return true;
    if (settleNotices()) return false;
    startTurn();
  }
  return settleBehindRead();
}

bool InotifyModel::next() {
  const bool event = settleAll();
  ++callbacks_;
  return event;
}

// The ends among the notices that need no callback; true when a notice has to come.
bool InotifyModel::settleNotices() {
  while (!notices_.empty() && notices_.front().turn < turn_) {
    if (settled_ || notices_.front().kind != Kind::kEnd) return true;
    const Notice notice = notices_.front();
    const Moved moved = move(notice.control);
    expectEnd_ = moved != Moved::kYes;
    expectRemoval_ = notice.what;
    settled_ = expectEnd_ || !notice.what.empty();
    if (settled_) return true;
    notices_.pop_front();
  }
  return false;
}

void InotifyModel::startTurn() {
  interrupted_ = false;
  readDone_ = false;
  ++turn_;
  admitted_ = events_.size();
}

void InotifyModel::beginTurn() {
  callbacks_ = 0;
  if (!interrupted_) startTurn();
}

}  // namespace Zorbe::Test::Fuzz
