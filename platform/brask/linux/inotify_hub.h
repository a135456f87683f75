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
///
/// When a tree is removed as a whole while its watchers make it again, a watcher of
/// the parent directory of another watcher's path can miss what it is there for. So
/// - when a path that was watched before cannot be watched again because it has gone,
///   the watchers of its parent that ask for IN_DELETE are told its name;
/// - the end of a directory is not told to a watcher of which another one watches an
///   entry: it moves to what its path leads to, at once or when the entry is watched.
class InotifyHub {
 public:
  /// `poller` reports the inotify descriptor, once there is one, with `data`.
  InotifyHub(Poller& poller, uint64_t data);

  /// Watches `path` for `watcher`; a refusal is told from a later turn.
  void add(InotifyWatcher& watcher, std::string path, uint32_t mask);
  void remove(InotifyWatcher& watcher);

  /// Refusals from here on wait for the next turn.
  void beginTurn() { turnStart_ = asked_; }
  bool hasFailures() const { return !notices_.empty(); }

  /// Whether something that was read has not been delivered.
  bool hasRest() const { return next_ != end_ || nextTarget_ != targets_.size() || !lost_.empty(); }

  /// Tells a poller that is being renewed about the descriptor; false when it cannot.
  bool pollAgain();

  /// Reads what the kernel has. Only when all of the last read was delivered.
  void read();

  /// These return true when they called a handler.
  bool deliver();
  bool deliverFailures();

 private:
  using Refusal = InotifyWatches::Refusal;
  enum class Kind { Change, End, Overflow };

  Refusal open();
  /// What the kernel does not report: a refusal, or the name of an entry that has gone.
  struct Notice {
    InotifyWatcher* watcher;
    std::string what;
    bool refusal;
    uint64_t since;  // in the hub's own count
  };

  void fail(InotifyWatcher& watcher, const Refusal& refusal);
  void notify(InotifyWatcher& watcher, std::string what, bool refusal);
  void dropNotices(const InotifyWatcher& watcher, bool alsoNames);
  void lapse(InotifyWatcher& gone);
  void resume(const std::string& parentPath);
  bool follow(InotifyWatcher& watcher);
  bool awaitsEntry(const std::string& path);
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

  std::vector<InotifyWatcher*> lapsed_;  // their directories have gone
  std::vector<Notice> notices_;
  uint64_t asked_ = 1;
  uint64_t turnStart_ = 1;
};

}  // namespace Brask::Linux
