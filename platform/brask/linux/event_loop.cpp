// SPDX-License-Identifier: MIT
#include "brask/linux/event_loop.h"

#include <stdexcept>
#include <utility>

#include "brask/linux/current_loop.h"
#include "brask/linux/loop.h"

namespace Brask::Linux {

namespace {

// Each turn reads it. In this model an access is an offset from the thread pointer and needs no
// call, also in a shared library. One pointer fits into the static TLS that the C library keeps
// for libraries that dlopen(3) loads.
[[gnu::tls_model("initial-exec")]] thread_local EventLoop* loopOfThread = nullptr;

// Inline, unlike EventLoop::Use, which other libraries may call.
class Current {
 public:
  explicit Current(EventLoop* loop) noexcept : former_(std::exchange(loopOfThread, loop)) {}
  Current(const Current&) = delete;
  Current& operator=(const Current&) = delete;
  ~Current() { loopOfThread = former_; }

 private:
  EventLoop* former_;
};

}  // namespace

EventLoop::EventLoop() {
  if (loopOfThread != nullptr) throw std::logic_error("this thread has an event loop already");
  loop_ = std::make_unique<Loop>();
  loopOfThread = this;
}

EventLoop::EventLoop(Unbound /*unbound*/) : loop_(std::make_unique<Loop>()) {}

EventLoop::~EventLoop() {
  if (loopOfThread == this) loopOfThread = nullptr;
}

EventLoop& EventLoop::current() {
  if (loopOfThread == nullptr) throw std::logic_error("this thread has no event loop");
  return *loopOfThread;
}

EventLoop::Use::Use(EventLoop& loop) noexcept : former_(std::exchange(loopOfThread, &loop)) {}

EventLoop::Use::~Use() {
  loopOfThread = former_;
}

void EventLoop::run() {
  const Current current(this);
  loop_->run();
}

void EventLoop::stop() noexcept {
  loop_->stop();
}

[[gnu::hot]] bool EventLoop::turn(double maxWaitSeconds) {
  const Current current(this);
  return loop_->turn(maxWaitSeconds);
}

int EventLoop::fd() const noexcept {
  return loop_->fd();
}

Loop& currentLoop() {
  return *EventLoop::current().loop_;
}

}  // namespace Brask::Linux
