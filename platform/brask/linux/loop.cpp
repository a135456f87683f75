// SPDX-License-Identifier: MIT
#include "brask/linux/loop.h"

#include <brask/platform.h>

#include <stdexcept>
#include <system_error>
#include <utility>

#include "brask/linux/deadline.h"

namespace Brask::Linux {

namespace {

// The data of the loop's own descriptors; handles of registrations are larger.
constexpr uint64_t kStop = 0;
constexpr uint64_t kTimerfd = 1;
constexpr uint64_t kInotify = 2;

// Between two checks for free descriptors: seldom enough to cost nothing, often enough for a
// client that waits for accept(2).
constexpr double kRetrySeconds = 0.05;

}  // namespace

/// Marks the loop as turning, and refuses to turn it from inside a callback.
class Loop::Turning {
 public:
  explicit Turning(Loop& loop) : loop_(loop) {
    if (loop_.turning_) throw std::logic_error("EventLoop: turned from inside a callback");
    loop_.turning_ = true;
  }
  ~Turning() {
    loop_.turning_ = false;
    loop_.signalReadiness();
  }
  Turning(const Turning&) = delete;
  Turning& operator=(const Turning&) = delete;

 private:
  Loop& loop_;
};

Loop::Loop() : inotify_(poller_, kInotify) {
  timers_.reserve();  // retry_
  if (const int error = pollOwn(); error != 0) throwSystemError(error, "EventLoop epoll_ctl()");
}

Loop::~Loop() {
  members_.detachAll();
}

int Loop::pollOwn() {
  const int error = poller_.add(stop_.fd(), kStop);
  return error != 0 ? error : poller_.add(timerfd_.fd(), kTimerfd);
}

[[gnu::hot]] void Loop::run() {
  const Turning turning(*this);
  while (!stop_.isSet()) pass(-1);
  stop_.clear();
}

[[gnu::hot]] bool Loop::turn(double maxWaitSeconds) {
  const Turning turning(*this);
  const Deadline deadline(maxWaitSeconds);
  for (;;) {
    const bool ran = pass(stop_.isSet() ? 0 : deadline.milliseconds());
    if (ran || stop_.isSet() || deadline.over()) return ran;
  }
}

int Loop::fd() noexcept {
  externallyPolled_ = true;
  if (!turning_) signalReadiness();
  return poller_.fd();
}

[[gnu::hot]] bool Loop::pass(int milliseconds) {
  if (interrupted_ && deliver(true)) return true;
  collect(milliseconds);
  return deliver(false);
}

[[gnu::hot]] void Loop::collect(int milliseconds) {
  retryLater();
  // Unlike hasWork(), without interrupted deliveries: pass() has completed them.
  const bool work = timers_.hasImmediate() || inotify_.hasNotices() || inotify_.hasQueued();
  waited_ = !work;
  // With work the loop does not wait. An expired timerfd would be an event in each turn.
  if (!work || (timerfd_.hasExpired() && !externallyPolled_))
    timerfd_.armNoLaterThan(timers_.earliestLater());
  ++turns_;
  endedBefore_ = descriptors_.ended();
  staleReportsBefore_ = descriptors_.staleReports();
  poller_.wait(work ? 0 : milliseconds);
  if (poller_.reported(kTimerfd)) timerfd_.noteExpired();
}

[[gnu::hot]] bool Loop::deliver(bool late) {
  interrupted_ = true;
  // The timerfd may not be armed where the loop did not wait.
  timers_.beginTurn(timerfd_.hasExpired() || !waited_);
  // A callback that throws each time does not keep newer events from being delivered.
  if (!late) inotify_.beginTurn();
  bool ran = (late || !waited_) && inotify_.hasUndelivered() && inotify_.deliver();
  for (uint64_t data = 0; poller_.take(data);) ran |= dispatch(data, late);
  if (inotify_.hasNotices()) ran |= inotify_.deliverNotices();
  ran |= runTimers();
  interrupted_ = false;
  dropStaleRegistrations();
  return ran;
}

[[gnu::hot]] bool Loop::dispatch(uint64_t data, bool late) {
  if (data > kInotify) return descriptors_.dispatch(data, turns_, late);
  if (data == kStop) stop_.drain();
  if (data != kInotify) return false;
  inotify_.read();
  return inotify_.deliver();
}

[[gnu::hot]] bool Loop::runTimers() {
  bool ran = false;
  while (TimerNode* node = timers_.takeDue()) {
    if (node == &retry_) {
      descriptors_.retryPaused();
    } else {
      node->handler->timeout();
      ran = true;
    }
  }
  return ran;
}

void Loop::retryLater() {
  if (!descriptors_.hasPaused() || retry_.state != TimerNode::State::kIdle) return;
  timers_.start(retry_, kRetrySeconds);
}

bool Loop::hasWork() const {
  return timers_.hasImmediate() || inotify_.hasNotices() || inotify_.hasUndelivered();
}

// The kernel keeps reporting a descriptor that was closed while a duplicate of it, perhaps in
// another process, is open, and has no call that could remove it. Only a new epoll descriptor
// is without it. Nothing is changed while a client polls the loop from outside, since the
// client would not notice that the old one was closed. The old one also stays when the new one
// does not take every registration: its next stale report causes another attempt.
void Loop::dropStaleRegistrations() {
  const bool stale = descriptors_.staleReports() != staleReportsBefore_;
  if (!stale || descriptors_.ended() != endedBefore_ || externallyPolled_) return;
  static_cast<void>(poller_.renew(
      [this] { return pollOwn() == 0 && inotify_.pollAgain() && descriptors_.registerAll(); }));
}

// Makes fd() readable when there is something to do, whenever the loop returns to its client.
// Costs nothing until fd() was called. An error of the timerfd cannot be thrown here: the
// descriptor is made readable, so that the client turns the loop and the turn throws it.
void Loop::signalReadiness() noexcept {
  if (!externallyPolled_) return;
  try {
    retryLater();
    if (stop_.isSet()) stop_.drain();
    if (hasWork()) {
      timerfd_.expireNow();
    } else {
      timerfd_.armAt(timers_.earliestLater());
    }
  } catch (const std::system_error&) {
    stop_.wake();
  }
}

void Loop::startTimer(TimerNode& node, double seconds) {
  timers_.start(node, seconds);
  if (!turning_) signalReadiness();
}

[[gnu::hot]] void Loop::cancelTimer(TimerNode& node) {
  timers_.cancel(node);
  if (!turning_) signalReadiness();
}

void Loop::releaseTimer(TimerNode& node) {
  timers_.release(node);
  if (!turning_) signalReadiness();
}

void Loop::addWatch(InotifyWatcher& watcher, std::string path, uint32_t mask) {
  inotify_.add(watcher, std::move(path), mask);
  if (!turning_) signalReadiness();
}

void Loop::removeWatch(InotifyWatcher& watcher) {
  inotify_.remove(watcher);
  if (!turning_) signalReadiness();
}

}  // namespace Brask::Linux
