// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "brask/linux/inotify_notices.h"
#include "brask/linux/inotify_watches.h"
#include "brask/linux/watched_paths.h"

namespace Brask::Linux {

/// Keeps the watchers of directories and of entries in them together when a tree is removed as
/// a whole and made again. The rules, of which event_loop.h tells the client:
///
/// - When a path cannot be watched again because it is gone, the watchers of its parent that
///   ask for IN_DELETE are given its name.
/// - When a directory ends, a watcher of it whose own mask reported the removal of an entry
///   that another watcher watches (or has yet to hear that it cannot) moves to the directory
///   that the path leads to now; without one that is tried again in a later turn, and then the
///   end is reported. A removal that only the entry's watcher has heard of, since it happened
///   before the directory's own was registered, is reported instead of the end.
/// - A watcher that asks for IN_DELETE and was refused because its path is gone watches it as
///   soon as an entry of it is watched.
class InotifyTree {
 public:
  InotifyTree(InotifyWatches& watches, InotifyNotices& notices)
      : watches_(watches), notices_(notices) {}

  WatchedPaths& paths() { return paths_; }

  /// The watcher has been given a watch, or refused one, or ended it.
  void watched(const InotifyWatcher& watcher);
  void refused(InotifyWatcher& watcher, const InotifyWatches::Refusal& refusal, bool again);
  void forget(InotifyWatcher& watcher);

  /// The watcher is about to hear of the removal of `name`.
  void reported(InotifyWatches::Registration& registration, std::string_view name);

  /// What becomes of the end of a directory: it is to be reported, or the watch has moved, or
  /// a later turn shall try that.
  enum class End { Reported, Moved, Later };

  /// Ends the watch or moves it. A `removal` that is not empty is to be reported in the second
  /// case. `mayMove` is false for ends that are always reported.
  End endOf(InotifyWatcher& watcher, bool mayMove, std::string& removal);

  /// Later, where there is nothing to move to.
  End move(InotifyWatcher& watcher);

 private:
  bool awaits(const InotifyWatcher& watcher);
  InotifyWatches::Refusal watchAgain(InotifyWatcher& watcher);
  bool isSpared(InotifyWatcher& watcher, std::string& removal);

  InotifyWatches& watches_;
  InotifyNotices& notices_;
  WatchedPaths paths_;
  size_t orphans_ = 0;
};

}  // namespace Brask::Linux
