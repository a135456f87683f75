// SPDX-License-Identifier: MIT
#pragma once

#include <sys/inotify.h>

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Zorbe::Test::Fuzz {

/// An event as it is read.
struct Event {
  int wd;
  uint32_t mask;
  std::string name;
  uint64_t first = 0;  // when it happened
  uint64_t last = 0;   // when an equal one happened that was merged with it
};

/// inotify(7) with a few directories: "/0" and "/2", each with one in it. In place from its
/// construction until the faults are reset; one at a time.
class MadeUpInotify {
 public:
  static constexpr size_t directories = 4;

  MadeUpInotify();

  static bool isInner(size_t directory) { return directory % 2 != 0; }
  static std::string nameOf(size_t directory) { return std::to_string(directory); }
  static std::string pathOf(size_t directory) {
    return (isInner(directory) ? pathOf(directory - 1) : "") + "/" + nameOf(directory);
  }

  // What happens to the directories.
  void change(size_t directory, uint32_t bit, const std::string& name);
  void remove(size_t directory);  // with what is in it, which is reported
  void unmount(size_t directory);
  void make(size_t directory);     // with what it is in
  void replace(size_t directory);  // the path leads to another one from now on
  void overflow();                 // what has not been read is lost
  void queue(Event event);         // an equal one at the end takes it in

  /// The time, which is later with each call and each event.
  uint64_t tick() { return ++time_; }

  /// There is no room for further watches.
  bool full = false;

  /// The removal of a directory is reported to its parent before it is to itself.
  bool parentFirst = false;

  /// At most so many events come out of one read.
  size_t atOnce = 100;

  /// What inotify_add_watch would say of it: the watch, or an errno as a negative number.
  int look(size_t directory, uint32_t mask) const;

  /// What the earliest read has brought that was not taken yet; nothing when there was none.
  std::optional<std::vector<Event>> takeRead();

  /// The watches that the earliest list of them told that was not taken yet.
  std::set<int> takeList();

  /// The watches that there are, each with the events that it asks for.
  const std::map<int, uint32_t>& watches() const { return watches_; }

 private:
  static int init(int flags);
  static int add(int fd, const char* path, uint32_t mask);
  static int removeWatch(int fd, int wd);
  static ssize_t read(int fd, void* buffer, size_t size);
  static FILE* tellWatches(const char* path, const char* mode);

  int watch(size_t directory, uint32_t mask);
  void end(size_t directory, uint32_t why);
  size_t fill(char* buffer, size_t size);

  int fd_ = -1;
  int lastWatch_ = 0;
  uint64_t time_ = 0;
  std::array<bool, directories> there_;
  std::array<int, directories> watchOf_ = {};  // 0: none
  std::map<int, uint32_t> watches_;
  std::deque<Event> queue_;
  std::deque<std::vector<Event>> reads_;
  std::deque<std::set<int>> lists_;
};

}  // namespace Zorbe::Test::Fuzz
