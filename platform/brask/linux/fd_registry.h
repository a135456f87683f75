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

/// The registering side of a descriptor: what one FdControl keeps of it.
struct FdWatcher {
  explicit FdWatcher(Platform::FdEventHandler* eventHandler) : handler(eventHandler) {}

  Platform::FdEventHandler* handler;
  Handle registration;  // invalid while nothing is watched
  int fd = -1;          // asked for far more often than it changes
};

/// Which descriptors are watched for whom. The kernel is given the handle of a
/// registration, never a descriptor's number, so that what it reports belongs to
/// the registration that it was reported for or to nobody.
class FdRegistry {
 public:
  explicit FdRegistry(Poller& poller) : poller_(poller) {}

  /// Watches `fd` instead of what was watched before. Throws std::system_error,
  /// with nothing watched, when the kernel refuses.
  void watch(FdWatcher& watcher, int fd);
  void unwatch(FdWatcher& watcher);

  /// Calls the handler of the registration that `data` stands for; false when
  /// there was none to call. `turn` counts the loop's turns; `late` says that the
  /// kernel's report is from an earlier one.
  bool dispatch(uint64_t data, uint64_t turn, bool late);

  /// Whether listening descriptors are paused because no descriptors are left.
  bool hasPaused() const { return paused_ != 0; }

  /// Lets them go on if there are descriptors again.
  void retryPaused();

  /// Counts what the kernel reported for registrations that had ended, and the
  /// registrations that ended.
  uint64_t strays() const { return strays_; }
  uint64_t ended() const { return ended_; }

  /// Tells a poller that is being renewed about every registration. Returns false
  /// when the kernel lacks what it takes; those are to be heard of by the old one.
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
  bool shallPause(Registration& registration, uint64_t turn);
  void resumePaused();

  Poller& poller_;
  SlotTable<Registration> registrations_;
  std::vector<Handle> byFd_;
  uint32_t paused_ = 0;
  uint64_t strays_ = 0;
  uint64_t ended_ = 0;
};

}  // namespace Brask::Linux
