// SPDX-License-Identifier: MIT
#include "brask/linux/inotify_watches.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <new>
#include <set>

namespace Brask::Linux {

namespace {

// They say how the path is looked up and are no part of the watch.
constexpr uint32_t kLookupBits = IN_ONLYDIR | IN_DONT_FOLLOW;

// They would act on a watch that others share; the hub applies them to the watcher instead.
constexpr uint32_t kOwnBits = IN_ONESHOT | IN_MASK_CREATE;

}  // namespace

InotifyWatches::Refusal InotifyWatches::open() {
  if (fd_.get() >= 0) return {};
  const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) {
    return {"inotify_init1()", errno, EMFILE,
            "fs.inotify.max_user_instances, or the process's limit of open files"};
  }
  fd_ = OwnedFd(fd);
  return {};
}

// The parent of a path directly under "/" is the empty path.
int InotifyWatches::request(const std::string& path, uint32_t mask) {
  return ::inotify_add_watch(fd_.get(), path.empty() ? "/" : path.c_str(), mask);
}

InotifyWatches::Refusal InotifyWatches::add(InotifyWatcher& watcher, uint32_t mask) {
  // IN_MASK_ADD takes no event from other watchers of the same directory, and the call returns
  // its watch. The kernel refuses the mask 0.
  const uint32_t asked = mask == 0 ? 0 : (mask & ~(kOwnBits | IN_EXCL_UNLINK)) | IN_MASK_ADD;
  queue_.drain(fd_.get());  // earlier events do not belong to the new registration
  const int wd = request(watcher.path, asked);
  if (wd < 0) {
    const int error = errno;
    leave(watcher);
    return {"inotify_add_watch()", error, ENOSPC, "fs.inotify.max_user_watches"};
  }
  try {
    join(watcher, wd, mask);
  } catch (const std::bad_alloc&) {
    undo(wd, watcher.path);
    throw;
  }
  Watch& watch = watches_[wd];
  watch.mask |= asked & IN_ALL_EVENTS;
  narrow(wd, watch, watcher.path, mask & kLookupBits);
  return {};
}

void InotifyWatches::join(InotifyWatcher& watcher, int wd, uint32_t mask) {
  Registration* old = find(watcher.registration);
  if (old != nullptr && old->wd == wd && watches_.count(wd) != 0) {
    // Stays the same registration, which still receives the events that are queued.
    old->mask = (mask & IN_MASK_ADD) != 0 ? old->mask | mask : mask;
    return;
  }
  const Handle handle = registrations_.insert({&watcher, wd, mask, queue_.end(), ++order_, false});
  try {
    watches_[wd].users.push_back(handle);
  } catch (const std::bad_alloc&) {
    registrations_.erase(handle);
    if (const auto unused = watches_.find(wd);
        unused != watches_.end() && unused->second.users.empty()) {
      watches_.erase(unused);
    }
    throw;
  }
  leave(watcher);
  watcher.registration = handle;
}

void InotifyWatches::leave(InotifyWatcher& watcher) {
  const Handle handle = watcher.registration;
  watcher.registration = Handle();
  const Registration* registration = find(handle);
  if (registration == nullptr) return;
  const int wd = registration->wd;
  registrations_.erase(handle);
  const auto found = watches_.find(wd);
  if (found == watches_.end()) return;
  std::vector<Handle>& users = found->second.users;
  users.erase(std::find(users.begin(), users.end(), handle));
  if (!users.empty()) return narrow(wd);
  watches_.erase(found);
  // Fails when the watched directory was removed: the kernel has ended the watch itself.
  static_cast<void>(::inotify_rm_watch(fd_.get(), wd));
}

uint32_t InotifyWatches::wanted(const Watch& watch) {
  uint32_t events = 0;
  uint32_t common = IN_EXCL_UNLINK;  // excludes events: only if all watchers ask for it
  for (const Handle handle : watch.users) {
    const uint32_t mask = find(handle)->mask;
    events |= mask & IN_ALL_EVENTS;
    common &= mask;
  }
  return events | common;
}

// After a watcher has left: removes from the kernel's mask what only that one asked for.
void InotifyWatches::narrow(int wd) {
  Watch& watch = watches_[wd];
  const uint32_t mask = wanted(watch);
  if (mask == watch.mask) return;
  const Registration& user = *find(watch.users.front());
  const std::string& path = user.watcher->path;
  const uint32_t how = user.mask & kLookupBits;
  // The path may lead elsewhere by now. A call that adds no event returns the watch of what it
  // leads to.
  const int there = request(path, mask | how | IN_MASK_ADD);
  if (there == wd) return narrow(wd, watch, path, how);
  undo(there, path);
}

void InotifyWatches::narrow(int wd, Watch& watch, const std::string& path, uint32_t how) {
  const uint32_t mask = wanted(watch);
  if (mask == watch.mask) return;
  const int there = request(path, mask | how);
  if (there == wd) {
    watch.mask = mask;
  } else {
    undo(there, path);  // a mask that is too wide only costs wake-ups: events are filtered
  }
}

// The path led to another directory than before: restores the watch that was changed by
// mistake.
void InotifyWatches::undo(int wd, const std::string& path) {
  if (wd < 0) return;
  const auto other = watches_.find(wd);
  if (other == watches_.end()) {
    static_cast<void>(::inotify_rm_watch(fd_.get(), wd));
    return;
  }
  static_cast<void>(request(path, other->second.mask | IN_MASK_ADD));
}

void InotifyWatches::collect(int wd, std::vector<Handle>& handles) {
  if (wd < 0) {
    registrations_.forEach([&](Handle handle, Registration&) { handles.push_back(handle); });
    return;
  }
  const auto found = watches_.find(wd);
  if (found == watches_.end()) return;
  handles.insert(handles.end(), found->second.users.begin(), found->second.users.end());
}

void InotifyWatches::noteEnd(int wd) {
  const auto found = watches_.find(wd);
  if (found == watches_.end()) return;
  for (const Handle user : found->second.users) find(user)->watcher->lastEnd = ++order_;
}

// A directory that a registration found after the position had not ended by then.
bool InotifyWatches::isFromBefore(const Watch& watch, uint64_t position) {
  return std::all_of(watch.users.begin(), watch.users.end(),
                     [&](Handle user) { return find(user)->begin <= position; });
}

std::vector<int> InotifyWatches::findLost(uint64_t position) {
  std::ifstream info("/proc/self/fdinfo/" + std::to_string(fd_.get()));
  if (!info) return {};
  std::set<int> known;
  const std::string start = "inotify wd:";
  for (std::string line; std::getline(info, line);) {
    if (line.compare(0, start.size(), start) != 0) continue;
    known.insert(static_cast<int>(std::stoul(line.substr(start.size()), nullptr, 16)));
  }
  std::vector<int> lost;
  for (const auto& [wd, watch] : watches_) {
    if (known.count(wd) == 0 && isFromBefore(watch, position)) lost.push_back(wd);
  }
  std::sort(lost.begin(), lost.end(), std::greater<>());
  return lost;
}

}  // namespace Brask::Linux
