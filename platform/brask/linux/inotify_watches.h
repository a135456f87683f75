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

/// The one inotify descriptor and who watches what with it. The kernel knows one
/// watch and one mask for a directory however many watchers there are, so its
/// mask is kept the union of theirs.
class InotifyWatches {
 public:
  struct Registration {
    InotifyWatcher* watcher = nullptr;
    int wd = -1;
    uint32_t mask = 0;             // what this watcher asked for
    uint64_t begin = 0;            // in the stream of events: those before it are not its own
    uint64_t since = 0;            // when it began, in the order of beginnings and ends
    bool removalReported = false;  // of an entry that another watcher watches
  };

  /// What a system call refused, and why; `error` 0 when nothing was refused.
  /// `limitError` stands for a limit, which `setting` raises.
  struct Refusal {
    const char* call = "";
    int error = 0;
    int limitError = 0;
    const char* setting = "";
  };

  explicit InotifyWatches(InotifyQueue& queue) : queue_(queue) {}

  /// Opens the descriptor, when it is not open yet.
  Refusal open();
  int fd() const { return fd_.get(); }

  /// Watches `watcher.path` instead of what the watcher watched before. On a
  /// refusal it watches nothing.
  Refusal add(InotifyWatcher& watcher, uint32_t mask);
  void leave(InotifyWatcher& watcher);

  Registration* find(Handle handle) { return registrations_.find(handle); }

  /// Appends the registrations of the kernel's watch `wd`, or all for -1.
  void collect(int wd, std::vector<Handle>& handles);
  uint32_t size() const { return registrations_.size(); }

  /// The kernel has ended its watch `wd`. The registrations are still there.
  void noteEnd(int wd);
  void forget(int wd) { watches_.erase(wd); }

  /// The kernel's watches, of those in use, that ended without our having been
  /// told: what an overflow of the queue may have swallowed. The first watched comes last.
  std::vector<int> findLost() const;

 private:
  struct Watch {
    uint32_t mask = 0;  // what the kernel has been asked for
    std::vector<Handle> users;
  };

  int request(const std::string& path, uint32_t mask);
  uint32_t wanted(const Watch& watch);
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
