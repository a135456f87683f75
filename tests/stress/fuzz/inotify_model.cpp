// SPDX-License-Identifier: MIT
#include "stress/fuzz/inotify_model.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Zorbe::Test::Fuzz {
namespace {

constexpr uint32_t selfBits = IN_DELETE_SELF | IN_MOVE_SELF;
const std::string overflowText =
    "inotify queue overflow: events have been lost (fs.inotify.max_queued_events is the limit)";

}  // namespace

// Those at a directory other than the control, in the order of their coming.
std::vector<size_t> InotifyModel::othersOf(size_t directory, size_t control) const {
  std::vector<size_t> others;
  for (size_t i = 0; i < controls; ++i) {
    const Control& c = controls_[i];
    if (i != control && c.asked && c.directory == directory) others.push_back(i);
  }
  std::sort(others.begin(), others.end(), [this](size_t left, size_t right) {
    return controls_[left].number < controls_[right].number;
  });
  return others;
}

bool InotifyModel::awaits(size_t control, Kind kind) const {
  return std::any_of(notices_.begin(), notices_.end(), [&](const Notice& notice) {
    return notice.control == control && notice.kind == kind;
  });
}

void InotifyModel::add(size_t control, size_t directory, uint32_t mask) {
  while (takeRead()) {  // waits for the next turn
  }
  Control& c = controls_[control];
  const bool again = c.asked && c.directory == directory;
  drop(control, !again);
  if (!c.asked) c.number = ++asked_;
  c.asked = true;
  c.orphaned = false;
  c.directory = directory;
  const int found = kernel_.look(directory, mask);
  if (found < 0) {
    leave(control);
    c.mask = mask;
    refuse(control, -found);
    if (again && found == -ENOENT) tellParents(control);
    return;
  }
  c.mask = (mask & IN_MASK_ADD) != 0 && c.wd == found ? c.mask | mask : mask;
  if (c.wd != found) enter(control, found);
  resumeParents(control);
}

void InotifyModel::refuse(size_t control, int error) {
  std::string text = "inotify_add_watch() " +
                     Kernel::FakeInotify::pathOf(controls_[control].directory) + ": " +
                     std::strerror(error);
  if (error == ENOSPC) text += " (raise fs.inotify.max_user_watches)";
  notices_.push_back({control, Kind::kRefusal, text, turn_});
}

// The path was removed before it could be watched again.
void InotifyModel::tellParents(size_t control) {
  Control& c = controls_[control];
  c.orphaned = (c.mask & IN_DELETE) != 0;
  if (!Kernel::FakeInotify::isInner(c.directory)) return;
  for (const size_t i : othersOf(c.directory - 1, control)) {
    Control& parent = controls_[i];
    const bool concerned = parent.wd != 0 || parent.orphaned || awaits(i, Kind::kEnd);
    if (!concerned || (parent.mask & IN_DELETE) == 0) continue;
    notices_.push_back({i, Kind::kRemoval, Kernel::FakeInotify::nameOf(c.directory), turn_});
    if (parent.wd != 0) parent.removalReported = true;
  }
}

void InotifyModel::resumeParents(size_t control) {
  const Control& c = controls_[control];
  if (!Kernel::FakeInotify::isInner(c.directory)) return;
  for (const size_t i : othersOf(c.directory - 1, control)) {
    if (controls_[i].orphaned && move(i) == Moved::kYes) controls_[i].orphaned = false;
  }
}

void InotifyModel::enter(size_t control, int wd) {
  EXPECT_GT(wd, 0) << "the watch was not set";
  leave(control);
  Control& c = controls_[control];
  c.wd = wd;
  c.since = kernel_.tick();
  c.removalReported = false;
  users_[wd].push_back(control);
}

void InotifyModel::drop(size_t control, bool removalsToo) {
  const auto isIts = [&](const Notice& notice) {
    return notice.control == control && (removalsToo || notice.kind != Kind::kRemoval);
  };
  notices_.erase(std::remove_if(notices_.begin(), notices_.end(), isIts), notices_.end());
}

void InotifyModel::remove(size_t control) {
  drop(control, true);
  leave(control);
  controls_[control].asked = false;
  controls_[control].orphaned = false;
}

void InotifyModel::leave(size_t control) {
  Control& c = controls_[control];
  if (const auto found = users_.find(c.wd); found != users_.end()) {
    auto& all = found->second;
    all.erase(std::remove(all.begin(), all.end(), control), all.end());
    if (all.empty()) users_.erase(found);
  }
  c.wd = 0;
  c.since = 0;
}

bool InotifyModel::isEnd() const {
  return (event_.mask & (IN_IGNORED | IN_UNMOUNT)) != 0;
}

bool InotifyModel::isOverflow() const {
  return (event_.mask & IN_Q_OVERFLOW) != 0;
}

bool InotifyModel::concerns(const Told& told) const {
  const Control& c = controls_[told.control];
  if (c.wd == 0 || c.since != told.since) return false;  // its registration has ended
  EXPECT_FALSE(event_.first < c.since && event_.last > c.since) << "one from before took it in";
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
  const auto tell = [&](size_t control) { toTell_.push_back({control, controls_[control].since}); };
  if (isOverflow()) {
    for (size_t i = 0; i < controls; ++i) {
      if (controls_[i].wd != 0) tell(i);
    }
    const std::set<int> there = kernel_.takeList();
    for (const auto& [wd, users] : users_) {
      if (there.count(wd) != 0) continue;
      lost_.insert(wd);
      for (const size_t user : users) controls_[user].lastEnd = kernel_.tick();
    }
    return;
  }
  const auto found = users_.find(event_.wd);
  if (found == users_.end()) return;
  for (const size_t control : found->second) tell(control);
}

void InotifyModel::takeEnd(int wd) {
  const auto found = users_.find(wd);
  if (found == users_.end()) return;
  for (const size_t control : found->second) {
    toTell_.push_back({control, controls_[control].since});
  }
  users_.erase(found);
}

// May the control be spared the end of its directory?
InotifyModel::Spared InotifyModel::sparedEnd(size_t control) const {
  const Control& c = controls_[control];
  const bool mayBe = (c.mask & IN_DELETE) != 0 && (c.mask & selfBits) == 0 &&
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
bool InotifyModel::settle(const Told& told) {
  if (settled_) return true;
  if (!concerns(told)) return false;
  expectEnd_ = isEnd() || (!isOverflow() && (event_.mask & selfBits) != 0);
  expectRemoval_.clear();
  settled_ = true;
  if (!isEnd()) return true;
  const Spared spared = sparedEnd(told.control);
  leave(told.control);
  if (!spared.spared) return true;
  const Moved moved = move(told.control);
  if (moved == Moved::kRefused) return true;
  expectEnd_ = false;
  expectRemoval_ = spared.removal;
  if (moved == Moved::kYes && !spared.removal.empty()) return true;
  if (moved == Moved::kGone) notices_.push_back({told.control, Kind::kEnd, spared.removal, turn_});
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
    if (isOverflow()) {  // told in any order
      const auto isVain = [&](const Told& told) { return !concerns(told); };
      toTell_.erase(std::remove_if(toTell_.begin(), toTell_.end(), isVain), toTell_.end());
      if (!toTell_.empty()) return true;
    }
    while (!toTell_.empty() && !settle(toTell_.front())) toTell_.pop_front();
    if (!toTell_.empty()) return true;
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

// Likewise, with the loop's own read, which comes behind the rest of the turn before.
bool InotifyModel::settleBehindRead() {
  if (settleEvents()) return true;
  if (readDone_ || !takeRead()) return false;
  readDone_ = true;
  admitted_ = events_.size();
  return settleEvents();
}

// Likewise. A turn behind an exception goes on with what the one before has left, and becomes
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

void InotifyModel::changed(size_t control, const std::string& what) {
  if (!next()) {
    ASSERT_TRUE(settleNotices()) << "no report was expected";
    const Notice& notice = notices_.front();
    EXPECT_TRUE(notice.kind == Kind::kRemoval || (notice.kind == Kind::kEnd && !expectEnd_));
    EXPECT_EQ(notice.control, control);
    EXPECT_EQ(notice.what, what);
    notices_.pop_front();
    settled_ = false;
    return;
  }
  EXPECT_EQ(toTell_.front().control, control);
  EXPECT_FALSE(expectEnd_ || isOverflow());
  toTell_.pop_front();
  settled_ = false;
  Control& c = controls_[control];
  if (!expectRemoval_.empty()) {
    EXPECT_EQ(what, expectRemoval_);
    return;
  }
  EXPECT_EQ(what, event_.name.empty() ? Kernel::FakeInotify::pathOf(c.directory) : event_.name);
  const bool ofEntry = !Kernel::FakeInotify::isInner(c.directory) &&
                       event_.name == Kernel::FakeInotify::nameOf(c.directory + 1) &&
                       !othersOf(c.directory + 1, control).empty();
  if ((event_.mask & c.mask & IN_DELETE) != 0 && ofEntry) c.removalReported = true;
  if ((c.mask & IN_ONESHOT) != 0) leave(control);
}

void InotifyModel::deleted(size_t control) {
  if (next()) {
    EXPECT_EQ(toTell_.front().control, control);
    toTell_.pop_front();
  } else {
    ASSERT_TRUE(settleNotices()) << "no report was expected";
    EXPECT_EQ(notices_.front().kind, Kind::kEnd);
    EXPECT_EQ(notices_.front().control, control);
    notices_.pop_front();
  }
  EXPECT_TRUE(expectEnd_);
  settled_ = false;
  leave(control);
}

void InotifyModel::error(size_t control, const std::string& what) {
  const bool more = next();
  if (what == overflowText) {
    EXPECT_TRUE(more && isOverflow());
    const auto isIts = [&](const Told& told) { return told.control == control; };
    const auto found = std::find_if(toTell_.begin(), toTell_.end(), isIts);
    ASSERT_NE(found, toTell_.end());
    toTell_.erase(found);
    return;
  }
  EXPECT_FALSE(more) << "an event was passed over";
  ASSERT_TRUE(settleNotices());
  EXPECT_EQ(notices_.front().kind, Kind::kRefusal);
  EXPECT_EQ(notices_.front().control, control);
  EXPECT_EQ(notices_.front().what, what);
  notices_.pop_front();
}

void InotifyModel::endTurn(bool thrown) {
  if (!thrown) {
    EXPECT_FALSE(settleAll()) << "something was not told";
    EXPECT_FALSE(settleNotices()) << "a notice was not told";
  }
  interrupted_ = thrown;
}

void InotifyModel::checkKernel() const {
  for (const auto& [wd, mask] : kernel_.watches()) {
    const auto found = users_.find(wd);
    ASSERT_NE(found, users_.end()) << "nobody uses watch " << wd;
    for (const size_t user : found->second) {
      EXPECT_EQ(controls_[user].mask & IN_ALL_EVENTS & ~mask, 0u) << "watch " << wd;
    }
  }
}

}  // namespace Zorbe::Test::Fuzz
