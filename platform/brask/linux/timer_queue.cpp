// SPDX-License-Identifier: MIT
#include "brask/linux/timer_queue.h"

#include <algorithm>

#include "brask/linux/monotonic.h"

namespace Brask::Linux {

void TimerQueue::reserve() {
  if (heap_.capacity() <= nodes_) heap_.reserve(std::max<size_t>(16, 2 * nodes_));
  ++nodes_;
}

void TimerQueue::release(TimerNode& node) {
  cancel(node);
  --nodes_;
}

int64_t TimerQueue::readClock() {
  return knownNow_ = monotonicNow();
}

void TimerQueue::start(TimerNode& node, double seconds) {
  const int64_t delay = toNanoseconds(seconds);
  node.order = starts_++;
  if (delay == 0) {
    startImmediate(node);
  } else {
    startLater(node, delay);
  }
}

void TimerQueue::startImmediate(TimerNode& node) {
  cancel(node);
  // Among immediate timers alone the order of the starts suffices; the clock is needed to order
  // it among timers with a delay.
  node.expiry = heap_.empty() ? knownNow_ : readClock();
  node.state = TimerNode::State::kImmediate;
  node.previous = lastImmediate_;
  node.next = nullptr;
  (lastImmediate_ != nullptr ? lastImmediate_->next : firstImmediate_) = &node;
  lastImmediate_ = &node;
}

void TimerQueue::startLater(TimerNode& node, int64_t delay) {
  const Entry entry{node.expiry = readClock() + delay, node.order, &node};
  if (node.state == TimerNode::State::kLater) {
    const bool earlier = entry.before(heap_[node.position]);
    earlier ? siftUp(node.position, entry) : siftDown(node.position, entry);
    return;
  }
  cancel(node);
  node.state = TimerNode::State::kLater;
  heap_.push_back(entry);
  siftUp(heap_.size() - 1, entry);
}

[[gnu::hot]] void TimerQueue::cancel(TimerNode& node) {
  if (node.state == TimerNode::State::kImmediate) unlink(node);
  if (node.state == TimerNode::State::kLater) removeFromHeap(node.position);
  node.state = TimerNode::State::kIdle;
}

[[gnu::hot]] void TimerQueue::beginTurn(bool mayBeDue) {
  turnStarts_ = starts_;
  // While the timerfd has not expired, no delay has passed, unless immediate timers have kept
  // the loop from waiting for it.
  const bool ask = !heap_.empty() && (mayBeDue || hasImmediate());
  turnNow_ = ask ? readClock() : knownNow_;
}

[[gnu::hot]] TimerNode* TimerQueue::takeDue() {
  TimerNode* node = firstImmediate_;
  if (!heap_.empty()) {
    const Entry& top = heap_.front();
    if (node == nullptr || top.before(Entry{node->expiry, node->order, node})) node = top.node;
  }
  // A timer that was started in this turn is ordered after all that are due in it.
  if (node == nullptr || node->expiry > turnNow_ || node->order >= turnStarts_) return nullptr;
  cancel(*node);
  return node;
}

void TimerQueue::unlink(TimerNode& node) {
  (node.previous != nullptr ? node.previous->next : firstImmediate_) = node.next;
  (node.next != nullptr ? node.next->previous : lastImmediate_) = node.previous;
}

void TimerQueue::removeFromHeap(size_t position) {
  const Entry last = heap_.back();
  heap_.pop_back();
  if (position == heap_.size()) return;
  const bool earlier = last.before(heap_[position]);
  earlier ? siftUp(position, last) : siftDown(position, last);
}

void TimerQueue::place(size_t position, const Entry& entry) {
  heap_[position] = entry;
  entry.node->position = position;
}

void TimerQueue::siftUp(size_t position, Entry entry) {
  while (position > 0) {
    const size_t parent = (position - 1) / 2;
    if (!entry.before(heap_[parent])) break;
    place(position, heap_[parent]);
    position = parent;
  }
  place(position, entry);
}

void TimerQueue::siftDown(size_t position, Entry entry) {
  for (size_t child = 2 * position + 1; child < heap_.size(); child = 2 * position + 1) {
    if (child + 1 < heap_.size() && heap_[child + 1].before(heap_[child])) ++child;
    if (!heap_[child].before(entry)) break;
    place(position, heap_[child]);
    position = child;
  }
  place(position, entry);
}

}  // namespace Brask::Linux
