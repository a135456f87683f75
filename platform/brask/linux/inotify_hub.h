// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "brask/linux/inotify_watches.h"
#include "brask/linux/poller.h"

namespace Brask::Linux {

/// Brings what the inotify descriptor reports to the watchers that it concerns,
/// each filtered by its own mask. Nothing is lost when a callback throws: the
/// next deliver() goes on behind it.
class InotifyHub {
 public:
  /// `poller` reports the inotify descriptor, once there is one, with `data`.
  InotifyHub(Poller& poller, uint64_t data);

  /// Watches `path` for `watcher`; a refusal is told from a later turn.
  void add(InotifyWatcher& watcher, std::string path, uint32_t mask);
  void remove(InotifyWatcher& watcher);

  /// Refusals from here on wait for the next turn.
  void beginTurn() { turnStart_ = asked_; }
  bool hasFailures() const { return !failed_.empty(); }

  /// Whether something that was read has not been delivered.
  bool hasRest() const { return next_ != end_ || nextTarget_ != targets_.size() || !lost_.empty(); }

  /// Tells a renewed poller about the descriptor.
  void pollAgain();

  /// Reads what the kernel has. Only when all of the last read was delivered.
  void read();

  /// These return true when they called a handler.
  bool deliver();
  bool deliverFailures();

 private:
  using Refusal = InotifyWatches::Refusal;
  enum class Kind { Change, End, Overflow };

  Refusal open();
  void fail(InotifyWatcher& watcher, const Refusal& refusal);
  bool takeNext();
  void takeEvent();
  void takeEnd(int wd);
  bool deliverTo(Handle handle);

  Poller& poller_;
  uint64_t data_;
  bool polled_ = false;
  InotifyWatches watches_;

  std::vector<char> buffer_;
  size_t next_ = 0;  // the next event in the buffer
  size_t end_ = 0;

  // The event being delivered and those it goes to.
  Kind kind_ = Kind::Change;
  uint32_t mask_ = 0;
  const char* name_ = nullptr;
  std::vector<Handle> targets_;
  size_t nextTarget_ = 0;
  std::vector<int> lost_;  // watches that ended unheard
  std::string what_;       // handed to callbacks; outlives what they may delete

  std::vector<InotifyWatcher*> failed_;
  uint64_t asked_ = 1;
  uint64_t turnStart_ = 1;
};

}  // namespace Brask::Linux
