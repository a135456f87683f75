// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Brask::Platform {
class TimeoutHandler;
}

namespace Brask::Linux {

/// One timer, part of the object that owns it; the queue only links to it.
struct TimerNode {
  explicit TimerNode(Platform::TimeoutHandler* timeoutHandler) : handler(timeoutHandler) {}
  TimerNode(const TimerNode&) = delete;
  TimerNode& operator=(const TimerNode&) = delete;

  Platform::TimeoutHandler* handler;  // null for the loop's own timer
  enum class State : uint8_t { kIdle, kImmediate, kLater } state = State::kIdle;
  size_t position = 0;            // in the heap, while kLater
  int64_t expiry = 0;             // while kImmediate: the time of its start, when known
  uint64_t order = 0;             // counts the starts, so that equal expiries keep their order
  TimerNode* previous = nullptr;  // in the list, while kImmediate
  TimerNode* next = nullptr;
};

/// The armed timers in order of expiry. Timers without a delay are in a list of their own,
/// which needs no heap and, while no other timer is armed, does not read the clock.
class TimerQueue {
 public:
  /// Reserves room for one more node, so that start() never allocates; release() returns it.
  void reserve();
  void release(TimerNode& node);

  void start(TimerNode& node, double seconds);
  void cancel(TimerNode& node);

  bool hasImmediate() const { return firstImmediate_ != nullptr; }

  /// The earliest expiry of a timer with a delay, 0 when there is none.
  int64_t earliestLater() const { return heap_.empty() ? 0 : heap_.front().expiry; }

  /// Decides what is due in this turn: timers started from here on wait for the next.
  /// `mayBeDue` means that a delay may have passed: the timerfd has expired, or was not armed.
  void beginTurn(bool mayBeDue);

  /// Takes the next timer due in this turn out of the queue; null when none is left.
  TimerNode* takeDue();

 private:
  // The keys are kept here so that sifting touches one array only.
  struct Entry {
    int64_t expiry;
    uint64_t order;
    TimerNode* node;
    bool before(const Entry& other) const {
      return expiry != other.expiry ? expiry < other.expiry : order < other.order;
    }
  };

  int64_t readClock();
  void startImmediate(TimerNode& node);
  void startLater(TimerNode& node, int64_t delay);
  void unlink(TimerNode& node);
  void removeFromHeap(size_t position);
  void place(size_t position, const Entry& entry);
  void siftUp(size_t position, Entry entry);
  void siftDown(size_t position, Entry entry);

  std::vector<Entry> heap_;
  TimerNode* firstImmediate_ = nullptr;
  TimerNode* lastImmediate_ = nullptr;
  size_t nodes_ = 0;
  uint64_t starts_ = 0;
  uint64_t turnStarts_ = 0;  // timers with an order below this may run in this turn
  int64_t turnNow_ = 0;
  int64_t knownNow_ = 0;  // the latest time read; at least the expiry of each kImmediate
};

}  // namespace Brask::Linux
