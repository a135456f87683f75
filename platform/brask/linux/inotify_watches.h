// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "brask/linux/inotify_queue.h"
#include "brask/linux/inotify_watcher.h"
#include "brask/linux/owned_fd.h"
#include "brask/linux/slot_table.h"

namespace Brask::Linux {

/// The inotify descriptor and its registrations. The kernel keeps one watch with one mask
/// for a directory, however many watchers there are; its mask is kept the union of theirs.
class InotifyWatches {
 public:
  struct Registration {
    InotifyWatcher* watcher = nullptr;
    int wd = -1;
    uint32_t mask = 0;             // of this watcher's addWatch()
    uint64_t begin = 0;            // in the stream of events: earlier ones are not its own
    uint64_t since = 0;            // when it began, in the order of beginnings and ends
    bool removalReported = false;  // of an entry that another watcher watches
  };

  /// Which system call failed, and why; `error` is 0 when none did. The errno `limitError`
  /// means that a limit is reached, which `setting` raises.
  struct Refusal {
    const char* call = "";
    int error = 0;
    int limitError = 0;
    const char* setting = "";
  };

  explicit InotifyWatches(InotifyQueue& queue) : queue_(queue) {}

  /// Opens the descriptor if it is not open yet.
  Refusal open();
  int fd() const { return fd_.get(); }

  /// Watches `watcher.path` instead of the path watched before. After a refusal the
  /// watcher watches nothing.
  Refusal add(InotifyWatcher& watcher, uint32_t mask);
  void leave(InotifyWatcher& watcher);

  Registration* find(Handle handle) { return registrations_.find(handle); }

  /// Appends the registrations of the kernel's watch `wd`, or all for -1.
  void collect(int wd, std::vector<Handle>& handles);
  uint32_t size() const { return registrations_.size(); }

  /// The kernel has ended its watch `wd`. The registrations are still there.
  void noteEnd(int wd);
  void forget(int wd) { watches_.erase(wd); }

  /// The watches that the kernel has ended, perhaps without an event, since the queue overflowed at
  /// `position` of the stream. One that was registered after that is not among them: its end
  /// is still to come. The one that was added first is last.
  std::vector<int> findLost(uint64_t position);

 private:
  struct Watch {
    uint32_t mask = 0;  // as the kernel has it
    std::vector<Handle> users;
  };

  int request(const std::string& path, uint32_t mask);
  uint32_t wanted(const Watch& watch);
  bool isFromBefore(const Watch& watch, uint64_t position);
  void join(InotifyWatcher& watcher, int wd, uint32_t mask);
  void narrow(int wd);
  void narrow(int wd, Watch& watch, const std::string& path, uint32_t how);
  void undo(int wd, const std::string& path);

  InotifyQueue& queue_;
  uint64_t order_ = 0;
  OwnedFd fd_;
  SlotTable<Registration> registrations_;
  std::unordered_map<int, Watch> watches_;
};

}  // namespace Brask::Linux
