// SPDX-License-Identifier: MIT
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "brask/linux/inotify_watcher.h"

namespace Brask::Linux {

/// A path as an entry of a directory, by its text alone. "" is the directory "/". A path that
/// is no entry of another directory ("/", ".", "..") is a directory without a name.
struct PathEntry {
  std::string_view directory;
  std::string_view name;
};

PathEntry entryOf(std::string_view path);

/// The path as the directory of its entries.
std::string_view directoryOf(std::string_view path);

/// Finds the watchers of a path, in the order of their first addWatch(), and those of a
/// directory's entries, in the order of their names.
class WatchedPaths {
 public:
  /// Enters the watcher under `path`, or moves it there, and sets its path.
  void place(InotifyWatcher& watcher, std::string path);
  void remove(InotifyWatcher& watcher);

  /// Calls `visit(watcher)` for each watcher of the path until one returns true, and returns
  /// that one, or null.
  template <typename Visit>
  InotifyWatcher* findAt(const PathEntry& entry, Visit visit) const {
    return find(entry, visit, [&](const PathEntry& other) {
      return other.directory == entry.directory && other.name == entry.name;
    });
  }

  /// The same for the watchers of entries of a directory.
  template <typename Visit>
  InotifyWatcher* findIn(std::string_view directory, Visit visit) const {
    const auto isIn = [&](const PathEntry& other) { return other.directory == directory; };
    const auto isFound = [&](InotifyWatcher& watcher) {
      return !entryOf(watcher.path).name.empty() && visit(watcher);
    };
    return find({directory, ""}, isFound, isIn);
  }

 private:
  struct Order {
    using is_transparent = void;
    bool operator()(const InotifyWatcher* left, const InotifyWatcher* right) const;
    bool operator()(const InotifyWatcher* left, const PathEntry& right) const;
  };

  template <typename Visit, typename Within>
  InotifyWatcher* find(const PathEntry& from, Visit visit, Within within) const {
    for (auto next = watchers_.lower_bound(from); next != watchers_.end(); ++next) {
      if (!within(entryOf((*next)->path))) return nullptr;
      if (visit(**next)) return *next;
    }
    return nullptr;
  }

  std::set<InotifyWatcher*, Order> watchers_;
  uint64_t count_ = 0;
};

}  // namespace Brask::Linux
