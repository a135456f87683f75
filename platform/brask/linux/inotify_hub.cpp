// SPDX-License-Identifier: MIT
#include "brask/linux/inotify_hub.h"

#include <brask/platform.h>
#include <limits.h>
#include <sys/inotify.h>

#include <utility>

namespace Brask::Linux {

namespace {

using Notice = InotifyNotices::Kind;
using Refusal = InotifyWatches::Refusal;

constexpr uint32_t kSelfBits = IN_DELETE_SELF | IN_MOVE_SELF;
const char* const kOverflowText =
    "inotify queue overflow: events have been lost (fs.inotify.max_queued_events is the limit)";

}  // namespace

InotifyHub::InotifyHub(Poller& poller, uint64_t data) : poller_(poller), data_(data) {
  what_.reserve(PATH_MAX);
  event_.name.reserve(PATH_MAX);
}

Refusal InotifyHub::open() {
  if (polled_) return {};
  const Refusal refusal = watches_.open();
  if (refusal.error != 0) return refusal;
  const int error = poller_.add(watches_.fd(), data_);
  polled_ = error == 0;
  return {"epoll_ctl()", error, ENOSPC, "fs.epoll.max_user_watches"};
}

bool InotifyHub::pollAgain() {
  return !polled_ || poller_.add(watches_.fd(), data_) == 0;
}

void InotifyHub::add(InotifyWatcher& watcher, std::string path, uint32_t mask) {
  const bool again = watcher.asked && watcher.path == path;
  tree_.paths().place(watcher, std::move(path));
  watcher.mask = mask;
  notices_.drop(watcher, again ? std::optional(Notice::kRemoval) : std::nullopt);
  watcher.orphaned = false;
  const size_t most = size_t{watches_.size()} + 1;
  if (targets_.capacity() < most) targets_.reserve(2 * most);
  Refusal refusal = open();
  if (refusal.error == 0) refusal = watches_.add(watcher, mask);
  if (refusal.error != 0) return tree_.refused(watcher, refusal, again);
  watcher.mask = watches_.find(watcher.registration)->mask;
  tree_.watched(watcher);
}

void InotifyHub::remove(InotifyWatcher& watcher) {
  watches_.leave(watcher);
  notices_.drop(watcher);
  tree_.paths().remove(watcher);
}

bool InotifyHub::deliver() {
  bool ran = false;
  for (;;) {
    while (nextTarget_ < targets_.size()) ran |= deliverTo(targets_[nextTarget_++]);
    if (!takeNext()) return ran;
  }
}

bool InotifyHub::takeNext() {
  targets_.clear();
  nextTarget_ = 0;
  if (!lost_.empty()) {
    takeEnd(lost_.back());
    lost_.pop_back();
    return true;
  }
  if (!queue_.take(event_)) return false;
  takeEvent();
  return true;
}

void InotifyHub::takeEvent() {
  if ((event_.mask & IN_Q_OVERFLOW) != 0) {
    kind_ = Kind::kOverflow;
    watches_.collect(-1, targets_);
    lost_ = watches_.findLost(event_.position);  // the end of a watch may be among what was lost
    for (const int wd : lost_) watches_.noteEnd(wd);
  } else if ((event_.mask & (IN_IGNORED | IN_UNMOUNT)) != 0) {
    watches_.noteEnd(event_.wd);
    takeEnd(event_.wd);
  } else {
    kind_ = Kind::kChange;
    watches_.collect(event_.wd, targets_);
  }
}

void InotifyHub::takeEnd(int wd) {
  kind_ = Kind::kEnd;
  watches_.collect(wd, targets_);
  watches_.forget(wd);
}

bool InotifyHub::deliverTo(Handle handle) {
  InotifyWatches::Registration* registration = watches_.find(handle);
  if (registration == nullptr || event_.position < registration->begin) return false;
  InotifyWatcher& watcher = *registration->watcher;
  const uint32_t asked = registration->mask;
  if (kind_ == Kind::kEnd) return deliverEnd(watcher, asked);
  if (kind_ == Kind::kOverflow) {
    what_ = kOverflowText;
    watcher.handler->inotifyError(what_);
    return true;
  }
  if ((event_.mask & asked & IN_ALL_EVENTS) == 0) return false;
  if ((event_.mask & asked & IN_DELETE) != 0) tree_.reported(*registration, event_.name);
  return deliverChange(watcher, asked);
}

bool InotifyHub::deliverChange(InotifyWatcher& watcher, uint32_t asked) {
  const bool self = (event_.mask & kSelfBits) != 0;
  if (self || (asked & IN_ONESHOT) != 0) watches_.leave(watcher);
  if (self) return reportEnd(watcher);
  what_ = event_.name.empty() ? watcher.path : event_.name;
  watcher.handler->inotifyChanged(what_);
  return true;
}

bool InotifyHub::deliverEnd(InotifyWatcher& watcher, uint32_t asked) {
  const bool mayMove = (asked & kSelfBits) == 0 && (event_.mask & IN_UNMOUNT) == 0;
  std::string removal;
  const InotifyTree::End end = tree_.endOf(watcher, mayMove, removal);
  if (end == InotifyTree::End::kReported) return reportEnd(watcher);
  if (end == InotifyTree::End::kLater || removal.empty()) return false;
  what_ = removal;
  watcher.handler->inotifyChanged(what_);
  return true;
}

// No removal of an entry is reported after the end of its directory. The refusal of a watch
// that could not move is.
bool InotifyHub::reportEnd(InotifyWatcher& watcher) {
  notices_.drop(watcher, Notice::kRefusal);
  watcher.handler->inotifyDeleted();
  return true;
}

bool InotifyHub::deliverNotice(const InotifyNotices::Notice& notice) {
  Platform::InotifyHandler& handler = *notice.watcher->handler;
  if (notice.kind == Notice::kRefusal) {
    handler.inotifyError(notice.what);
    return true;
  }
  if (notice.kind == Notice::kEnd) {
    if (tree_.move(*notice.watcher) != InotifyTree::End::kMoved) return reportEnd(*notice.watcher);
    if (notice.what.empty()) return false;
  }
  handler.inotifyChanged(notice.what);
  return true;
}

bool InotifyHub::deliverNotices() {
  bool ran = false;
  for (InotifyNotices::Notice notice; notices_.take(notice);) ran |= deliverNotice(notice);
  return ran;
}

}  // namespace Brask::Linux
