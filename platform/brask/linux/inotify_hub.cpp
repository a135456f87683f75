// SPDX-License-Identifier: MIT
#include "brask/linux/inotify_hub.h"

#include <brask/platform.h>
#include <limits.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Brask::Linux {

namespace {

constexpr size_t BUFFER_SIZE = 64 * 1024;
constexpr uint32_t SELF_BITS = IN_DELETE_SELF | IN_MOVE_SELF;
const char* const OVERFLOW_TEXT =
    "inotify queue overflow: events have been lost (fs.inotify.max_queued_events is the limit)";

}  // namespace

InotifyHub::InotifyHub(Poller& poller, uint64_t data) : poller_(poller), data_(data) {
  what_.reserve(PATH_MAX);
}

InotifyHub::Refusal InotifyHub::open() {
  if (polled_) return {};
  const Refusal refusal = watches_.open();
  if (refusal.error != 0) return refusal;
  const int error = poller_.add(watches_.fd(), data_);
  polled_ = error == 0;
  return {"epoll_ctl()", error, ENOSPC, "fs.epoll.max_user_watches"};
}

void InotifyHub::pollAgain() {
  if (polled_) polled_ = poller_.add(watches_.fd(), data_) == 0;
}

void InotifyHub::add(InotifyWatcher& watcher, std::string path, uint32_t mask) {
  watcher.path = std::move(path);
  failed_.erase(std::remove(failed_.begin(), failed_.end(), &watcher), failed_.end());
  Refusal refusal = open();
  if (refusal.error == 0) refusal = watches_.add(watcher, mask);
  if (refusal.error != 0) return fail(watcher, refusal);
  if (targets_.capacity() < watches_.size()) targets_.reserve(2 * watches_.size());
}

void InotifyHub::fail(InotifyWatcher& watcher, const Refusal& refusal) {
  watcher.failure =
      std::string(refusal.call) + " " + watcher.path + ": " + std::strerror(refusal.error);
  if (refusal.error == refusal.limitError) {
    watcher.failure += std::string(" (raise ") + refusal.setting + ")";
  }
  watcher.failedAt = asked_++;
  failed_.push_back(&watcher);
}

void InotifyHub::remove(InotifyWatcher& watcher) {
  watches_.leave(watcher);
  failed_.erase(std::remove(failed_.begin(), failed_.end(), &watcher), failed_.end());
}

void InotifyHub::read() {
  if (buffer_.empty()) buffer_.resize(BUFFER_SIZE);
  next_ = end_ = 0;
  const ssize_t got = ::read(watches_.fd(), buffer_.data(), buffer_.size());
  if (got < 0 && errno != EAGAIN && errno != EINTR)
    throwSystemError(errno, "EventLoop read(inotify)");
  if (got > 0) end_ = static_cast<size_t>(got);
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
  if (next_ == end_) return false;
  takeEvent();
  return true;
}

void InotifyHub::takeEvent() {
  inotify_event event;
  std::memcpy(&event, buffer_.data() + next_, sizeof event);
  name_ = event.len != 0 ? buffer_.data() + next_ + sizeof event : "";
  next_ += sizeof event + event.len;
  mask_ = event.mask;
  if ((mask_ & IN_Q_OVERFLOW) != 0) {
    kind_ = Kind::Overflow;
    watches_.collect(-1, targets_);
    lost_ = watches_.findLost();  // the end of a watch may be among what was lost
  } else if ((mask_ & (IN_IGNORED | IN_UNMOUNT)) != 0) {
    takeEnd(event.wd);
  } else {
    kind_ = Kind::Change;
    watches_.collect(event.wd, targets_);
  }
}

void InotifyHub::takeEnd(int wd) {
  kind_ = Kind::End;
  watches_.collect(wd, targets_);
  watches_.forget(wd);
}

bool InotifyHub::deliverTo(Handle handle) {
  const InotifyWatches::Registration* registration = watches_.find(handle);
  if (registration == nullptr) return false;
  InotifyWatcher& watcher = *registration->watcher;
  const uint32_t asked = registration->mask;
  if (kind_ == Kind::Overflow) {
    what_ = OVERFLOW_TEXT;
    watcher.handler->inotifyError(what_);
    return true;
  }
  if (kind_ == Kind::Change && (mask_ & asked & IN_ALL_EVENTS) == 0) return false;
  const bool gone = kind_ == Kind::End || (mask_ & SELF_BITS) != 0;
  if (gone || (asked & IN_ONESHOT) != 0) watches_.leave(watcher);
  if (gone) {
    watcher.handler->inotifyDeleted();
    return true;
  }
  what_ = *name_ != '\0' ? name_ : watcher.path.c_str();
  watcher.handler->inotifyChanged(what_);
  return true;
}

bool InotifyHub::deliverFailures() {
  bool ran = false;
  while (!failed_.empty() && failed_.front()->failedAt < turnStart_) {
    InotifyWatcher& watcher = *failed_.front();
    failed_.erase(failed_.begin());
    const std::string what = std::move(watcher.failure);
    watcher.handler->inotifyError(what);
    ran = true;
  }
  return ran;
}

}  // namespace Brask::Linux
