// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "brask/linux/inotify_notices.h"
#include "brask/linux/inotify_watches.h"
#include "brask/linux/watched_paths.h"

namespace Brask::Linux {

/// Keeps the watchers of directories and of their entries working when a tree is removed as a
/// whole and made again. The rules, which event_loop.h describes to clients:
///
/// - When a path cannot be watched again because it was removed, the watchers of its parent
///   that ask for IN_DELETE receive its name.
/// - When a directory ends, a watcher of it whose own mask reported the removal of an entry
///   that another watcher watches (or whose refusal is not delivered yet) moves to the
///   directory that the path leads to now. Without such a directory the loop tries again in a
///   later turn, and then reports the end. A removal that only the entry's watcher received,
///   since it happened before the directory's watcher was registered, is reported instead of
///   the end.
/// - A watcher that asks for IN_DELETE and was refused because its path was removed watches it
///   as soon as an entry of it is watched.
class InotifyTree {
 public:
  InotifyTree(InotifyWatches& watches, InotifyNotices& notices)
      : watches_(watches), notices_(notices) {}

  WatchedPaths& paths() { return paths_; }

  /// The watcher has got a watch, or was refused one.
  void watched(const InotifyWatcher& watcher);
  void refused(InotifyWatcher& watcher, const InotifyWatches::Refusal& refusal, bool again);

  /// The removal of `name` is about to be reported to the watcher.
  void reported(InotifyWatches::Registration& registration, std::string_view name);

  /// How the end of a directory is handled: it is to be reported, or the watch has moved, or a
  /// later turn tries to move it.
  enum class End { kReported, kMoved, kLater };

  /// Ends the watch or moves it. A `removal` that is not empty is to be reported in the second
  /// case. `mayMove` is false for ends that are always reported.
  End endOf(InotifyWatcher& watcher, bool mayMove, std::string& removal);

  /// kLater where the path leads to no directory.
  End move(InotifyWatcher& watcher);

 private:
  bool awaits(const InotifyWatcher& watcher);
  InotifyWatches::Refusal watchAgain(InotifyWatcher& watcher);
  bool isSpared(InotifyWatcher& watcher, std::string& removal);

  InotifyWatches& watches_;
  InotifyNotices& notices_;
  WatchedPaths paths_;
};

}  // namespace Brask::Linux
