// SPDX-License-Identifier: MIT
//
// What the bundled loop promises about descriptors and timers, as a naive model: it
// follows everything that is done to the loop, and checks each callback.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>

namespace Zorbe::Test::Fuzz {

class LoopModel {
 public:
  static constexpr size_t kControls = 4;
  static constexpr size_t kTimers = 9;  // the last one stops the loop
  static constexpr int kNothing = -1;

  // What is done to the loop.
  void watch(size_t control, int fd);
  void unwatch(size_t control) { watched_[control] = Watch(); }
  void ready(int fd) { ready_.insert(fd); }
  void notReady(int fd) { ready_.erase(fd); }
  void start(size_t timer, double seconds, int64_t now);
  void cancel(size_t timer) { armed_[timer] = Timer(); }

  /// The descriptor that `FdControl::fd()` has to return.
  int watched(size_t control) const { return watched_[control].fd; }

  // A turn and its callbacks.
  void beginTurn(int64_t now);
  void fdEvent(size_t control, int fd);
  void timeout(size_t timer);
  void endTurn(bool thrown);
  unsigned callbacks() const { return callbacks_; }

  /// The next turn, at this time, has something to do.
  bool hasWork(int64_t now) const;

 private:
  struct Watch {
    int fd = kNothing;
    uint64_t id = 0;  // of the registration, which no other one has
  };
  struct Timer {
    uint64_t order = 0;  // of its start, 0: not armed
    int64_t expiry = 0;

    bool before(const Timer& other) const {
      return expiry != other.expiry ? expiry < other.expiry : order < other.order;
    }
  };

  bool isReady(const Watch& watch) const { return ready_.count(watch.fd) != 0; }
  bool isDue(const Timer& timer) const;

  std::array<Watch, kControls> watched_;
  std::array<Timer, kTimers> armed_;
  std::set<int> ready_;
  uint64_t count_ = 0;  // of registrations and starts

  // The turn.
  int64_t turnNow_ = 0;
  uint64_t turnCount_ = 0;
  std::set<uint64_t> allowed_;  // registrations that the kernel may have reported
  bool interrupted_ = false;    // the turn before was ended by an exception
  bool mustRun_ = false;
  unsigned callbacks_ = 0;
};

}  // namespace Zorbe::Test::Fuzz
