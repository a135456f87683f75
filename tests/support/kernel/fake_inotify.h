// SPDX-License-Identifier: MIT
#pragma once

#include "support/kernel/files.h"

#include <array>
#include <cstdio>

namespace Zorbe::Test::Kernel {

/// The one inotify(7) instance of a loop, with a few directories, "/0" to "/3". The calls of
/// inotify, read(2) of its descriptor and its file in /proc/self/fdinfo work on it from its
/// construction until the faults are reset. One at a time.
class FakeInotify {
 public:
  static constexpr size_t kDirectories = 4;

  FakeInotify();

  static std::string pathOf(size_t directory) { return "/" + std::to_string(directory); }

  // What happens to the directories.
  void change(size_t directory, uint32_t event, const std::string& name);
  void remove(size_t directory);  // which is reported to its watchers
  void unmount(size_t directory);
  void make(size_t directory) { files_.makeDirectories(pathOf(directory)); }
  void replace(size_t directory);  // from now on the path leads to another directory
  void overflow() { inotify_.overflow(); }
  void queue(const InotifyEvent& event) { inotify_.queue(event); }

  /// There is no room for further watches.
  bool isFull = false;

  /// At most so many events come out of one read.
  size_t mostAtOnce = 100;

  /// What inotify_add_watch would return: the watch, 0 for a new one, or an errno as a negative
  /// number.
  int look(size_t directory, uint32_t mask) const;

  /// The events that were read since the last call.
  std::deque<InotifyEvent> takeRead();

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
  std::deque<InotifyEvent> read_;
};

}  // namespace Zorbe::Test::Kernel
