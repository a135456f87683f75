// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace Zorbe::Test::Kernel {

/// An event as it is read.
struct InotifyEvent {
  int wd;
  uint32_t mask;
  std::string name;
  uint64_t first = 0;  ///< when it happened
  uint64_t last = 0;   ///< when an equal one happened that was merged with it

  bool operator==(const InotifyEvent& other) const {
    return wd == other.wd && mask == other.mask && name == other.name;
  }
};

/// One instance of inotify(7): its watches, and the queue of its events.
class Inotify {
 public:
  /// The queue holds `limit` events, and then one that says that others were lost.
  explicit Inotify(std::size_t limit) : limit_(limit) {}

  /// Watches an inode, or changes the mask of its watch. Returns the watch.
  int add(uint64_t inode, uint32_t mask);

  /// Ends a watch. False when there is none of that number.
  bool remove(int wd);

  /// Something happened to an inode, or to an entry `name` of it.
  void report(uint64_t inode, uint32_t event, const std::string& name);

  /// An inode is no more: its watch ends, after an event `why` unless that is 0.
  void end(uint64_t inode, uint32_t why);

  /// The time, which is later with each call and each event.
  uint64_t tick() { return ++time_; }

  /// The watch of an inode, 0: none.
  int find(uint64_t inode) const;

  /// The watches, each with the events that it asks for.
  const std::map<int, uint32_t>& watches() const { return watches_; }

  /// Adds an event to the queue, as the kernel does: merges it with an equal last one, and adds
  /// none beyond the limit.
  void queue(InotifyEvent event);

  /// Events are lost: all that are queued.
  void overflow();

  void clear() { queue_.clear(); }
  bool isEmpty() const { return queue_.empty(); }
  InotifyEvent take();

  /// Takes as many events, at most `most`, as read(2) fits into the buffer; appends them to
  /// `taken`. Returns the number of bytes.
  std::size_t read(char* buffer, std::size_t size, std::size_t most,
                   std::vector<InotifyEvent>& taken);

 private:
  std::size_t limit_;
  int lastWatch_ = 0;
  uint64_t time_ = 0;
  std::map<uint64_t, int> watchOf_;  // by inode
  std::map<int, uint32_t> watches_;
  std::deque<InotifyEvent> queue_;
};

}  // namespace Zorbe::Test::Kernel
