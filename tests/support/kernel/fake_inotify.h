// SPDX-License-Identifier: MIT
#pragma once

#include "support/kernel/files.h"

#include <cstdio>
#include <optional>
#include <set>

namespace Zorbe::Test::Kernel {

/// The one inotify(7) instance of a loop, with a few directories: "/0" and "/2", each with one in
/// it. The calls of inotify, read(2) of its descriptor and its file in /proc/self/fdinfo work on it
/// from its construction until the faults are reset. One at a time.
class FakeInotify {
 public:
  static constexpr size_t kDirectories = 4;

  FakeInotify();

  static bool isInner(size_t directory) { return directory % 2 != 0; }
  static std::string nameOf(size_t directory) { return std::to_string(directory); }
  static std::string pathOf(size_t directory) {
    return (isInner(directory) ? pathOf(directory - 1) : "") + "/" + nameOf(directory);
  }

  // What happens to the directories.
  void change(size_t directory, uint32_t event, const std::string& name);
  void remove(size_t directory) { files_.removeTree(pathOf(directory)); }
  void unmount(size_t directory) { files_.unmount(pathOf(directory)); }
  void make(size_t directory) { files_.makeDirectories(pathOf(directory)); }
  void replace(size_t directory) { files_.replace(pathOf(directory)); }
  void overflow() { inotify_.overflow(); }
  void queue(const InotifyEvent& event) { inotify_.queue(event); }
  void reportParentFirst(bool first) { files_.reportsParentFirst = first; }

  /// Nothing waits to be read, or nobody can read it.
  bool isEmpty() const { return fd_ < 0 || inotify_.isEmpty(); }

  /// The time, which is later with each call and each event.
  uint64_t tick() { return inotify_.tick(); }

  /// There is no room for further watches.
  bool isFull = false;

  /// At most so many events come out of one read.
  size_t mostAtOnce = 100;

  /// What inotify_add_watch would return: the watch, 0 for a new one, or an errno as a negative
  /// number.
  int look(size_t directory, uint32_t mask) const;

  /// The events of the earliest read that was not taken yet; nothing when there was none.
  std::optional<std::vector<InotifyEvent>> takeRead();

  /// The watches of the earliest list of them that was not taken yet.
  std::set<int> takeList();

  /// The watches, each with the events that it asks for.
  const std::map<int, uint32_t>& watches() const { return inotify_.watches(); }

 private:
  static int init(int flags);
  static int add(int fd, const char* path, uint32_t mask);
  static int removeWatch(int fd, int wd);
  static ssize_t read(int fd, void* buffer, size_t size);
  static FILE* openWatchList(const char* path, const char* mode);

  uint64_t inodeOf(size_t directory) const { return files_.inode(pathOf(directory)); }
  int watch(size_t directory, uint32_t mask);

  int fd_ = -1;
  Files files_;
  Inotify inotify_;
  std::deque<std::vector<InotifyEvent>> reads_;
  std::deque<std::set<int>> lists_;
};

}  // namespace Zorbe::Test::Kernel
