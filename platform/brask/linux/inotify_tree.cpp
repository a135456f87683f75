// SPDX-License-Identifier: MIT
#include "brask/linux/inotify_tree.h"

#include <sys/inotify.h>

#include <cerrno>
#include <cstring>

namespace Brask::Linux {

namespace {

using Kind = InotifyNotices::Kind;
using Refusal = InotifyWatches::Refusal;

bool isMissing(const Refusal& refusal) {
  return refusal.error == ENOENT || refusal.error == ENOTDIR;
}

std::string textOf(const Refusal& refusal, const std::string& path) {
  std::string text = std::string(refusal.call) + " " + path + ": " + std::strerror(refusal.error);
  if (refusal.error == refusal.limitError) {
    text += std::string(" (raise ") + refusal.setting + ")";
  }
  return text;
}

}  // namespace

void InotifyTree::refused(InotifyWatcher& watcher, const Refusal& refusal, bool again) {
  notices_.add(watcher, Kind::kRefusal, textOf(refusal, watcher.path));
  if (!again || !isMissing(refusal)) return;
  const PathEntry entry = entryOf(watcher.path);
  if (!entry.name.empty()) {
    paths_.findAt(entryOf(entry.directory), [&](InotifyWatcher& parent) {
      InotifyWatches::Registration* registration = watches_.find(parent.registration);
      const bool concerned = registration != nullptr || parent.orphaned || parent.ends != 0;
      if (concerned && (parent.mask & IN_DELETE) != 0) {
        notices_.add(parent, Kind::kRemoval, std::string(entry.name));
        if (registration != nullptr) registration->removalReported = true;
      }
      return false;
    });
  }
  if ((watcher.mask & IN_DELETE) != 0) watcher.orphaned = true;
}

// An entry of the directory is watched, so that it is there.
void InotifyTree::watched(const InotifyWatcher& watcher) {
  const PathEntry entry = entryOf(watcher.path);
  if (entry.name.empty()) return;
  paths_.findAt(entryOf(entry.directory), [&](InotifyWatcher& parent) {
    if (!parent.orphaned) return false;
    const Refusal refusal = watchAgain(parent);
    if (refusal.error == 0) {
      parent.orphaned = false;
    } else if (!isMissing(refusal)) {
      notices_.add(parent, Kind::kRefusal, textOf(refusal, parent.path));
    }
    return false;
  });
}

Refusal InotifyTree::watchAgain(InotifyWatcher& watcher) {
  return watches_.add(watcher, watcher.mask | IN_ONLYDIR);
}

void InotifyTree::reported(InotifyWatches::Registration& registration, std::string_view name) {
  if (registration.removalReported) return;
  const InotifyWatcher* watcher = registration.watcher;
  const auto isOther = [&](const InotifyWatcher& other) { return &other != watcher; };
  const PathEntry entry{directoryOf(watcher->path), name};
  registration.removalReported = paths_.findAt(entry, isOther) != nullptr;
}

bool InotifyTree::awaits(const InotifyWatcher& watcher) {
  return watches_.find(watcher.registration) != nullptr || watcher.refusals != 0 ||
         watcher.ends != 0;
}

bool InotifyTree::isSpared(InotifyWatcher& watcher, std::string& removal) {
  const InotifyWatches::Registration& registration = *watches_.find(watcher.registration);
  if ((registration.mask & IN_DELETE) == 0) return false;
  const bool reported = registration.removalReported;
  const InotifyWatcher* entry =
      paths_.findIn(directoryOf(watcher.path), [&](const InotifyWatcher& other) {
        const bool removed = reported || other.lastEnd > registration.since;
        return &other != &watcher && removed && awaits(other);
      });
  if (entry == nullptr) return false;
  if (!reported) removal = entryOf(entry->path).name;
  return true;
}

InotifyTree::End InotifyTree::endOf(InotifyWatcher& watcher, bool mayMove, std::string& removal) {
  const bool spared = mayMove && isSpared(watcher, removal);
  watches_.leave(watcher);
  if (!spared) return End::kReported;
  const End end = move(watcher);
  if (end == End::kLater) notices_.add(watcher, Kind::kEnd, removal);
  return end;
}

InotifyTree::End InotifyTree::move(InotifyWatcher& watcher) {
  const Refusal refusal = watchAgain(watcher);
  if (refusal.error == 0) return End::kMoved;
  if (isMissing(refusal)) return End::kLater;
  notices_.add(watcher, Kind::kRefusal, textOf(refusal, watcher.path));
  return End::kReported;
}

}  // namespace Brask::Linux
