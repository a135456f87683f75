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

/// Delivers the events of the inotify descriptor to their watchers, filtered by the mask of
/// each and by the time of its registration. Nothing is lost when a callback throws: the next
/// deliver() continues after it.
class InotifyHub {
 public:
  /// `poller` reports the inotify descriptor, once it is open, with `data`.
  InotifyHub(Poller& poller, uint64_t data);

  /// Watches `path` for `watcher`; a refusal is reported in a later turn.
  void add(InotifyWatcher& watcher, std::string path, uint32_t mask);
  void remove(InotifyWatcher& watcher);

  /// Events and notices that are added from here on, except by read(), wait for the next turn.
  void beginTurn() {
    queue_.beginTurn();
    notices_.beginTurn();
  }

  bool hasNotices() const { return !notices_.empty(); }

  /// Whether events that were read wait for the next turn.
  bool hasQueued() const { return !queue_.empty(); }

  /// The same, or a delivery that an exception has interrupted.
  bool hasUndelivered() const {
    return hasQueued() || nextTarget_ != targets_.size() || !lost_.empty();
  }

  /// Adds the descriptor to a poller that is being renewed; false when the kernel refuses.
  bool pollAgain();

  /// Reads the events that the kernel has queued.
  void read() { queue_.read(watches_.fd()); }

  /// These return true when they called a handler.
  bool deliver();
  bool deliverNotices();

 private:
  enum class Kind { kChange, kEnd, kOverflow };

  InotifyWatches::Refusal open();
  bool takeNext();
  void takeEvent();
  void takeEnd(int wd);
  bool deliverTo(Handle handle);
  bool deliverChange(InotifyWatcher& watcher, uint32_t asked);
  bool deliverEnd(InotifyWatcher& watcher, uint32_t asked);
  bool reportEnd(InotifyWatcher& watcher);
  bool deliverNotice(const InotifyNotices::Notice& notice);

  Poller& poller_;
  uint64_t data_;
  bool polled_ = false;
  InotifyQueue queue_;
  InotifyWatches watches_{queue_};
  InotifyNotices notices_;
  InotifyTree tree_{watches_, notices_};

  // The event being delivered and its receivers.
  Kind kind_ = Kind::kChange;
  InotifyEvent event_;
  std::vector<Handle> targets_;
  size_t nextTarget_ = 0;
  std::vector<int> lost_;  // watches whose end was lost in an overflow
  std::string what_;       // passed to callbacks, which may delete the watcher
};

}  // namespace Brask::Linux
