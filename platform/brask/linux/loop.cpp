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
constexpr uint64_t STOP = 0;
constexpr uint64_t ALARM = 1;
constexpr uint64_t INOTIFY = 2;

// Between two looks for free descriptors: seldom enough to cost nothing, often
// enough for a client that waits to be accepted.
constexpr double RETRY_SECONDS = 0.05;

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
    loop_.showWork();
  }
  Turning(const Turning&) = delete;
  Turning& operator=(const Turning&) = delete;

 private:
  Loop& loop_;
};

Loop::Loop() : inotify_(poller_, INOTIFY) {
  timers_.admit();  // retry_
  if (const int error = pollOwn(); error != 0) throwSystemError(error, "EventLoop epoll_ctl()");
}

Loop::~Loop() {
  members_.detachAll();
}

int Loop::pollOwn() {
  const int error = poller_.add(stop_.fd(), STOP);
  return error != 0 ? error : poller_.add(alarm_.fd(), ALARM);
}

[[gnu::hot]] void Loop::run() {
  const Turning turning(*this);
  while (!stop_.raised()) pass(-1);
  stop_.lower();
}

[[gnu::hot]] bool Loop::turn(double maxWaitSeconds) {
  const Turning turning(*this);
  const Deadline deadline(maxWaitSeconds);
  for (;;) {
    const bool ran = pass(stop_.raised() ? 0 : deadline.milliseconds());
    if (ran || stop_.raised() || deadline.over()) return ran;
  }
}

int Loop::fd() noexcept {
  shown_ = true;
  if (!turning_) showWork();
  return poller_.fd();
}

[[gnu::hot]] bool Loop::pass(int milliseconds) {
  if (interrupted_ && deliver(true)) return true;
  collect(milliseconds);
  return deliver(false);
}

[[gnu::hot]] void Loop::collect(int milliseconds) {
  retryLater();
  // Interrupted deliveries, which hasWork() counts, too, have been completed by pass().
  const bool work = timers_.hasImmediate() || inotify_.hasNotices() || inotify_.hasQueued();
  waited_ = !work;
  // With work the loop does not wait; but an alarm left ringing is an event a turn.
  if (!work || (alarm_.hasRung() && !shown_)) alarm_.ringBy(timers_.earliestLater());
  ++turns_;
  endedBefore_ = descriptors_.ended();
  straysBefore_ = descriptors_.strays();
  poller_.wait(work ? 0 : milliseconds);
  if (poller_.reported(ALARM)) alarm_.rang();
}

[[gnu::hot]] bool Loop::deliver(bool late) {
  interrupted_ = true;
  // The alarm need not be set where the loop did not wait for it.
  timers_.beginTurn(alarm_.hasRung() || !waited_);
  // What comes out of a callback that throws each time shall not be all that ever runs.
  if (!late) inotify_.beginTurn();
  bool ran = (late || !waited_) && inotify_.hasUndelivered() && inotify_.deliver();
  for (uint64_t data = 0; poller_.take(data);) ran |= dispatch(data, late);
  if (inotify_.hasNotices()) ran |= inotify_.deliverNotices();
  ran |= runTimers();
  interrupted_ = false;
  shedStrays();
  return ran;
}

[[gnu::hot]] bool Loop::dispatch(uint64_t data, bool late) {
  if (data > INOTIFY) return descriptors_.dispatch(data, turns_, late);
  if (data == STOP) stop_.quiet();
  if (data != INOTIFY) return false;
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
  if (!descriptors_.hasPaused() || retry_.state != TimerNode::State::Idle) return;
  timers_.start(retry_, RETRY_SECONDS);
}

bool Loop::hasWork() const {
  return timers_.hasImmediate() || inotify_.hasNotices() || inotify_.hasUndelivered();
}

// The kernel goes on reporting a descriptor that was closed while a duplicate of
// it, perhaps in another process, is still open, and offers no way to name it any
// more. Only a new epoll descriptor is rid of it. Left alone while somebody polls
// the loop from outside, who would not notice that the old one is gone. The old one
// stays when the new one cannot be told everything: its stray reports ask for another try.
void Loop::shedStrays() {
  const bool strayed = descriptors_.strays() != straysBefore_;
  if (!strayed || descriptors_.ended() != endedBefore_ || shown_) return;
  static_cast<void>(poller_.renew(
      [this] { return pollOwn() == 0 && inotify_.pollAgain() && descriptors_.registerAll(); }));
}

// Keeps the promise of fd() whenever the loop is left to its client. It costs
// nothing until somebody has asked for fd(). Here is nobody to tell of an alarm that
// the kernel refuses to set: the client is made to turn, and the turn tries again.
void Loop::showWork() noexcept {
  if (!shown_) return;
  try {
    retryLater();
    if (stop_.raised()) stop_.quiet();
    if (hasWork()) {
      alarm_.ringNow();
    } else {
      alarm_.ringAt(timers_.earliestLater());
    }
  } catch (const std::system_error&) {
    stop_.call();
  }
}

void Loop::startTimer(TimerNode& node, double seconds) {
  timers_.start(node, seconds);
  if (!turning_) showWork();
}

[[gnu::hot]] void Loop::cancelTimer(TimerNode& node) {
  timers_.cancel(node);
  if (!turning_) showWork();
}

void Loop::dismissTimer(TimerNode& node) {
  timers_.dismiss(node);
  if (!turning_) showWork();
}

void Loop::addWatch(InotifyWatcher& watcher, std::string path, uint32_t mask) {
  inotify_.add(watcher, std::move(path), mask);
  if (!turning_) showWork();
}

void Loop::removeWatch(InotifyWatcher& watcher) {
  inotify_.remove(watcher);
  if (!turning_) showWork();
}

}  // namespace Brask::Linux
