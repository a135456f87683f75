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

constexpr size_t BUFFER_SIZE = size_t{64} * 1024;
constexpr uint32_t SELF_BITS = IN_DELETE_SELF | IN_MOVE_SELF;
const char* const OVERFLOW_TEXT =
    "inotify queue overflow: events have been lost (fs.inotify.max_queued_events is the limit)";

bool hasGone(int error) {
  return error == ENOENT || error == ENOTDIR;
}

std::string withoutTrailingSlashes(const std::string& path) {
  return path.substr(0, path.find_last_not_of('/') + 1);
}

// "" for a path directly under "/".
std::string parentOf(const std::string& path) {
  const std::string bare = withoutTrailingSlashes(path);
  const size_t slash = bare.rfind('/');
  return slash == std::string::npos ? "." : bare.substr(0, slash);
}

std::string nameOf(const std::string& path) {
  const std::string bare = withoutTrailingSlashes(path);
  return bare.substr(bare.rfind('/') + 1);
}

void erase(std::vector<InotifyWatcher*>& watchers, InotifyWatcher* watcher) {
  watchers.erase(std::remove(watchers.begin(), watchers.end(), watcher), watchers.end());
}

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

bool InotifyHub::pollAgain() {
  return !polled_ || poller_.add(watches_.fd(), data_) == 0;
}

void InotifyHub::add(InotifyWatcher& watcher, std::string path, uint32_t mask) {
  const bool again = watcher.path == path && watcher.mask != 0;
  watcher.path = std::move(path);
  watcher.mask = mask;
  dropNotices(watcher, !again);
  erase(lapsed_, &watcher);
  Refusal refusal = open();
  if (refusal.error == 0) refusal = watches_.add(watcher, mask);
  if (refusal.error != 0) {
    fail(watcher, refusal);
    if (again && hasGone(refusal.error)) lapse(watcher);
    return;
  }
  if (targets_.capacity() < watches_.size()) targets_.reserve(size_t{2} * watches_.size());
  if (!lapsed_.empty()) resume(parentOf(watcher.path));
}

void InotifyHub::fail(InotifyWatcher& watcher, const Refusal& refusal) {
  std::string what =
      std::string(refusal.call) + " " + watcher.path + ": " + std::strerror(refusal.error);
  if (refusal.error == refusal.limitError) {
    what += std::string(" (raise ") + refusal.setting + ")";
  }
  notify(watcher, std::move(what), true);
}

void InotifyHub::notify(InotifyWatcher& watcher, std::string what, bool refusal) {
  notices_.push_back({&watcher, std::move(what), refusal, asked_++});
}

void InotifyHub::dropNotices(const InotifyWatcher& watcher, bool alsoNames) {
  const auto dropped = [&](const Notice& notice) {
    return notice.watcher == &watcher && (alsoNames || notice.refusal);
  };
  notices_.erase(std::remove_if(notices_.begin(), notices_.end(), dropped), notices_.end());
}

// The path of the watcher has gone while it was to be watched again.
void InotifyHub::lapse(InotifyWatcher& gone) {
  const std::string parent = parentOf(gone.path);
  const auto tell = [&](InotifyWatcher& watcher) {
    if (watcher.path != parent || (watcher.mask & IN_DELETE) == 0) return;
    notify(watcher, nameOf(gone.path), false);
  };
  watches_.forEach(tell);
  for (InotifyWatcher* watcher : lapsed_) tell(*watcher);
  lapsed_.push_back(&gone);
}

// An entry of `parentPath` is watched, so the directory is there.
void InotifyHub::resume(const std::string& parentPath) {
  const std::vector<InotifyWatcher*> lapsed = lapsed_;
  for (InotifyWatcher* watcher : lapsed) {
    if (watcher->path != parentPath) continue;
    if (watches_.add(*watcher, watcher->mask).error == 0) erase(lapsed_, watcher);
  }
}

bool InotifyHub::follow(InotifyWatcher& watcher) {
  if ((mask_ & IN_UNMOUNT) != 0 || !awaitsEntry(watcher.path)) return false;
  watches_.leave(watcher);
  if (watches_.add(watcher, watcher.mask).error != 0) lapsed_.push_back(&watcher);
  return true;
}

// An entry of the directory is watched, or its watcher has yet to hear that it is not.
bool InotifyHub::awaitsEntry(const std::string& path) {
  bool found = false;
  watches_.forEach([&](const InotifyWatcher& other) { found |= parentOf(other.path) == path; });
  for (const Notice& notice : notices_) found |= parentOf(notice.watcher->path) == path;
  return found;
}

void InotifyHub::remove(InotifyWatcher& watcher) {
  watches_.leave(watcher);
  watcher.mask = 0;
  dropNotices(watcher, true);
  erase(lapsed_, &watcher);
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
  if (kind_ == Kind::End && (asked & SELF_BITS) == 0 && follow(watcher)) return false;
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
  while (!notices_.empty() && notices_.front().since < turnStart_) {
    const Notice notice = std::move(notices_.front());
    notices_.erase(notices_.begin());
    if (notice.refusal) {
      notice.watcher->handler->inotifyError(notice.what);
    } else {
      notice.watcher->handler->inotifyChanged(notice.what);
    }
    ran = true;
  }
  return ran;
}

}  // namespace Brask::Linux
