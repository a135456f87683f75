// SPDX-License-Identifier: MIT
#include "stress/fuzz/inotify_model.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Zorbe::Test::Fuzz {
namespace {

const std::string kOverflowText =
    "inotify queue overflow: events have been lost (fs.inotify.max_queued_events is the limit)";

}  // namespace

// The other controls of a directory, in the order of their first watch.
std::vector<size_t> InotifyModel::othersOf(size_t directory, size_t control) const {
  std::vector<size_t> others;
  for (size_t i = 0; i < kControls; ++i) {
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
    if (again && found == -ENOENT) reportToParents(control);
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
void InotifyModel::reportToParents(size_t control) {
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
  dropNotices(control, [&](Kind kind) { return removalsToo || kind != Kind::kRemoval; });
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
  EXPECT_EQ(due_.front().control, control);
  EXPECT_FALSE(expectEnd_ || isOverflow());
  due_.pop_front();
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
    EXPECT_EQ(due_.front().control, control);
    due_.pop_front();
  } else {
    ASSERT_TRUE(settleNotices()) << "no report was expected";
    EXPECT_EQ(notices_.front().kind, Kind::kEnd);
    EXPECT_EQ(notices_.front().control, control);
    notices_.pop_front();
  }
  EXPECT_TRUE(expectEnd_);
  settled_ = false;
  leave(control);
  dropNotices(control, [](Kind kind) { return kind == Kind::kRemoval; });
}

void InotifyModel::error(size_t control, const std::string& what) {
  const bool more = next();
  if (what == kOverflowText) {
    EXPECT_TRUE(more && isOverflow());
    const auto isIts = [&](const Report& report) { return report.control == control; };
    const auto found = std::find_if(due_.begin(), due_.end(), isIts);
    ASSERT_NE(found, due_.end());
    due_.erase(found);
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
    EXPECT_FALSE(settleAll()) << "an event was not reported";
    EXPECT_FALSE(settleNotices()) << "a notice was not reported";
  }
  interrupted_ = thrown;
}

void InotifyModel::checkKernel() const {
  for (const auto& [wd, mask] : kernel_.watches()) {
    const auto found = users_.find(wd);
    ASSERT_NE(found, users_.end()) << "no control uses watch " << wd;
    for (const size_t user : found->second) {
      EXPECT_EQ(controls_[user].mask & IN_ALL_EVENTS & ~mask, 0u) << "watch " << wd;
    }
  }
}

void InotifyModel::checkEnds() const {
  for (size_t i = 0; i < kControls; ++i) {
    const int wd = controls_[i].wd;
    EXPECT_TRUE(wd == 0 || kernel_.watches().count(wd) != 0)
        << "the end of control " << i << "'s directory was not reported";
  }
}

}  // namespace Zorbe::Test::Fuzz
