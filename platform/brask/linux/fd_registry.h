// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "brask/linux/poller.h"
#include "brask/linux/slot_table.h"

namespace Brask::Platform {
class FdEventHandler;
}

namespace Brask::Linux {

/// What one FdControl keeps of the descriptor that it watches.
struct FdWatcher {
  explicit FdWatcher(Platform::FdEventHandler* eventHandler) : handler(eventHandler) {}

  Platform::FdEventHandler* handler;
  Handle registration;  // invalid while nothing is watched
  int fd = -1;          // read far more often than it changes
};

/// The watched descriptors and their handlers. The kernel stores the handle of a
/// registration, not the descriptor's number: an event of a registration that has ended
/// finds no other one under the same number.
class FdRegistry {
 public:
  explicit FdRegistry(Poller& poller) : poller_(poller) {}

  /// Watches `fd` instead of the descriptor watched before. Throws std::system_error,
  /// with nothing watched, when the kernel refuses.
  void watch(FdWatcher& watcher, int fd);
  void unwatch(FdWatcher& watcher);

  /// Calls the handler of the registration that `data` names; false when there is none to
  /// call. `turn` counts the loop's turns; `late` means that the kernel reported the event
  /// in an earlier one.
  bool dispatch(uint64_t data, uint64_t turn, bool late);

  /// Whether listening descriptors are paused because no descriptors are left.
  bool hasPaused() const { return paused_ != 0; }

  /// Resumes them when there are free descriptors.
  void retryPaused();

  /// How many events the kernel reported for registrations that had ended, and how many
  /// registrations have ended.
  uint64_t staleReports() const { return staleReports_; }
  uint64_t ended() const { return ended_; }

  /// Adds every registration to a poller that is being renewed. Returns false when the
  /// kernel has no room for one: the poller then keeps its old epoll descriptor.
  bool registerAll();

 private:
  struct Registration {
    Platform::FdEventHandler* handler = nullptr;
    FdWatcher* watcher = nullptr;
    int fd = -1;
    bool listening = false;
    bool paused = false;
    uint32_t streak = 0;  // turns in a row in which a listening descriptor was ready
    uint64_t lastTurn = 0;
  };

  void end(Handle handle);
  bool shouldPause(Registration& registration, uint64_t turn);
  void resumePaused();

  Poller& poller_;
  SlotTable<Registration> registrations_;
  std::vector<Handle> byFd_;
  uint32_t paused_ = 0;
  uint64_t staleReports_ = 0;
  uint64_t ended_ = 0;
};

}  // namespace Brask::Linux
