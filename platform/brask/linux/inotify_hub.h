// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "brask/linux/inotify_notices.h"
#include "brask/linux/inotify_queue.h"
#include "brask/linux/inotify_tree.h"
#include "brask/linux/inotify_watches.h"
#include "brask/linux/poller.h"

namespace Brask::Linux {

/// Brings what the inotify descriptor reports to the watchers that it concerns, each filtered
/// by its own mask and by the time of its registration. Nothing is lost when a callback
/// throws: the next deliver() goes on behind it.
class InotifyHub {
 public:
  /// `poller` reports the inotify descriptor, once there is one, with `data`.
  InotifyHub(Poller& poller, uint64_t data);

  /// Watches `path` for `watcher`; a refusal is reported in a later turn.
  void add(InotifyWatcher& watcher, std::string path, uint32_t mask);
  void remove(InotifyWatcher& watcher);

  /// What comes up from here on, other than by read(), waits for the next turn.
  void beginTurn() {
    queue_.beginTurn();
    notices_.beginTurn();
  }

  bool hasNotices() const { return !notices_.empty(); }

  /// Whether events that were read wait for a turn of their own.
  bool hasQueued() const { return !queue_.empty(); }

  /// The same, or a delivery that an exception has interrupted.
  bool hasUndelivered() const {
    return hasQueued() || nextTarget_ != targets_.size() || !lost_.empty();
  }

  /// Adds the descriptor to a poller that is being renewed; false when it cannot.
  bool pollAgain();

  /// Reads what the kernel has.
  void read() { queue_.read(watches_.fd()); }

  /// These return true when they called a handler.
  bool deliver();
  bool deliverNotices();

 private:
  enum class Kind { Change, End, Overflow };

  InotifyWatches::Refusal open();
  bool takeNext();
  void takeEvent();
  void takeEnd(int wd);
  bool deliverTo(Handle handle);
  bool deliverChange(InotifyWatcher& watcher, uint32_t asked);
  bool deliverEnd(InotifyWatcher& watcher, uint32_t asked);
  bool deliverNotice(const InotifyNotices::Notice& notice);

  Poller& poller_;
  uint64_t data_;
  bool polled_ = false;
  InotifyQueue queue_;
  InotifyWatches watches_{queue_};
  InotifyNotices notices_;
  InotifyTree tree_{watches_, notices_};

  // The event being delivered and those it goes to.
  Kind kind_ = Kind::Change;
  InotifyEvent event_;
  std::vector<Handle> targets_;
  size_t nextTarget_ = 0;
  std::vector<int> lost_;  // watches whose end an overflow has swallowed
  std::string what_;       // handed to callbacks; outlives what they may delete
};

}  // namespace Brask::Linux
