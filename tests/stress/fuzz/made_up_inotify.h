// SPDX-License-Identifier: MIT
#pragma once

#include <sys/inotify.h>

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <string>

namespace Zorbe::Test::Fuzz {

/// An event as it is read.
struct Event {
  int wd;
  uint32_t mask;
  std::string name;
};

/// inotify(7) with a few directories, "/0" to "/3". In place from its construction until the
/// faults are reset; one at a time.
class MadeUpInotify {
 public:
  static constexpr size_t directories = 4;

  MadeUpInotify();

  static std::string pathOf(size_t directory) { return "/" + std::to_string(directory); }

  // What happens to the directories.
  void change(size_t directory, uint32_t bit, const std::string& name);
  void remove(size_t directory);  // it is gone, which its watchers are told
  void unmount(size_t directory);
  void make(size_t directory) { there_[directory] = true; }
  void replace(size_t directory);  // the path leads to another one from now on
  void overflow();                 // what has not been read is lost
  void queue(const Event& event) { queue_.push_back(event); }

  /// There is no room for further watches.
  bool full = false;

  /// At most so many events come out of one read.
  size_t atOnce = 100;

  /// What inotify_add_watch would say of it: the watch, or an errno as a negative number.
  int look(size_t directory, uint32_t mask) const;

  /// What was read since the last call.
  std::deque<Event> takeRead();

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
  std::array<bool, directories> there_;
  std::array<int, directories> watchOf_ = {};  // 0: none
  std::map<int, uint32_t> watches_;
  std::deque<Event> queue_;
  std::deque<Event> read_;
};

}  // namespace Zorbe::Test::Fuzz
