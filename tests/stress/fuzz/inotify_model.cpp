// SPDX-License-Identifier: MIT
#include "stress/fuzz/inotify_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace Zorbe::Test::Fuzz {
namespace {

constexpr uint32_t selfBits = IN_DELETE_SELF | IN_MOVE_SELF;
const std::string overflowText =
    "inotify queue overflow: events have been lost (fs.inotify.max_queued_events is the limit)";

}  // namespace

void InotifyModel::add(size_t control, const std::string& path, uint32_t mask, int found) {
  remove(control, Keep::watch);
  Control& c = controls_[control];
  c.path = path;
  if (found < 0) {
    leave(control);
    std::string text = "inotify_add_watch() " + path + ": " + std::strerror(-found);
    if (found == -ENOSPC) text += " (raise fs.inotify.max_user_watches)";
    notices_.push_back({control, text, turn_});
    return;
  }
  if (c.wd == found) {
    c.mask = (mask & IN_MASK_ADD) != 0 ? c.mask | mask : mask;
    return;
  }
  leave(control);
  c.wd = found;
  c.mask = mask;
  c.id = ++registrations_;
  users_[found].push_back(control);
}

void InotifyModel::remove(size_t control, Keep keep) {
  const auto isIts = [&](const Notice& notice) { return notice.control == control; };
  notices_.erase(std::remove_if(notices_.begin(), notices_.end(), isIts), notices_.end());
  if (keep == Keep::nothing) leave(control);
}

void InotifyModel::leave(size_t control) {
  Control& c = controls_[control];
  if (const auto found = users_.find(c.wd); found != users_.end()) {
    auto& all = found->second;
    all.erase(std::remove(all.begin(), all.end(), control), all.end());
    if (all.empty()) users_.erase(found);
  }
  c.wd = 0;
  c.id = 0;
}

bool InotifyModel::isEnd() const {
  return (event_.mask & (IN_IGNORED | IN_UNMOUNT)) != 0;
}

bool InotifyModel::isOverflow() const {
  return (event_.mask & IN_Q_OVERFLOW) != 0;
}

bool InotifyModel::concerns(const Told& told) const {
  const Control& c = controls_[told.control];
  if (c.id != told.id) return false;  // its registration has ended
  return isEnd() || isOverflow() || (event_.mask & c.mask & IN_ALL_EVENTS) != 0;
}

void InotifyModel::take() {
  event_ = events_.front();
  events_.pop_front();
  const auto tell = [&](size_t control) { toTell_.push_back({control, controls_[control].id}); };
  if (isOverflow()) {
    for (size_t i = 0; i < controls; ++i) {
      if (controls_[i].wd != 0) tell(i);
    }
    for (const auto& watch : users_) {
      if (kernel_.watches().count(watch.first) == 0) lost_.insert(watch.first);
    }
    return;
  }
  const auto found = users_.find(event_.wd);
  if (found == users_.end()) return;
  for (const size_t control : found->second) tell(control);
  if (isEnd()) users_.erase(found);
}

// Advances to what has to be delivered next; false when there is nothing.
bool InotifyModel::advance() {
  for (const Kernel::InotifyEvent& event : kernel_.takeRead()) events_.push_back(event);
  const auto isLost = [&](const Control& c) { return lost_.count(c.wd) != 0; };
  for (;;) {
    const auto isVain = [&](const Told& told) { return !concerns(told); };
    // An overflow is delivered in any order; the masks that events are filtered by may change.
    while (!toTell_.empty() && isVain(toTell_.front())) toTell_.pop_front();
    if (isOverflow()) {
      toTell_.erase(std::remove_if(toTell_.begin(), toTell_.end(), isVain), toTell_.end());
    }
    if (!toTell_.empty() || std::any_of(controls_.begin(), controls_.end(), isLost)) return true;
    lost_.clear();
    if (events_.empty()) return false;
    take();
  }
}

void InotifyModel::changed(size_t control, const std::string& what) {
  EXPECT_TRUE(advance() && !toTell_.empty()) << "nothing was to be told";
  EXPECT_EQ(toTell_.front().control, control);
  EXPECT_FALSE(isEnd() || isOverflow() || (event_.mask & selfBits) != 0);
  const Control& c = controls_[control];
  EXPECT_EQ(what, event_.name.empty() ? c.path : event_.name);
  toTell_.pop_front();
  if ((c.mask & IN_ONESHOT) != 0) leave(control);
}

void InotifyModel::deleted(size_t control) {
  EXPECT_TRUE(advance()) << "nothing was to be told";
  if (toTell_.empty()) {
    EXPECT_EQ(lost_.count(controls_[control].wd), 1u);
  } else {
    EXPECT_EQ(toTell_.front().control, control);
    EXPECT_TRUE(isEnd() || (event_.mask & selfBits) != 0);
    toTell_.pop_front();
  }
  leave(control);
}

void InotifyModel::error(size_t control, const std::string& what) {
  const bool more = advance();
  if (what == overflowText) {
    EXPECT_TRUE(more && isOverflow());
    const auto isIts = [&](const Told& told) { return told.control == control; };
    const auto found = std::find_if(toTell_.begin(), toTell_.end(), isIts);
    ASSERT_NE(found, toTell_.end());
    toTell_.erase(found);
    return;
  }
  EXPECT_FALSE(more) << "an event was passed over";
  ASSERT_FALSE(notices_.empty());
  EXPECT_EQ(notices_.front().control, control);
  EXPECT_EQ(notices_.front().what, what);
  EXPECT_LT(notices_.front().turn, turn_) << "it came in the turn of the call";
  notices_.pop_front();
}

void InotifyModel::endTurn(bool thrown) {
  if (thrown) return;
  EXPECT_FALSE(advance()) << "something was not told";
  if (!notices_.empty()) EXPECT_EQ(notices_.front().turn, turn_) << "a refusal was not told";
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
