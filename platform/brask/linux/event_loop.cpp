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
[[gnu::tls_model("initial-exec")]] thread_local EventLoop* current_ = nullptr;

// Inline, unlike EventLoop::Use, which other libraries may call.
class Current {
 public:
  explicit Current(EventLoop* loop) noexcept : former_(std::exchange(current_, loop)) {}
  Current(const Current&) = delete;
  Current& operator=(const Current&) = delete;
  ~Current() { current_ = former_; }

 private:
  EventLoop* former_;
};

}  // namespace

EventLoop::EventLoop() {
  if (current_ != nullptr) throw std::logic_error("this thread has an event loop already");
  loop_ = std::make_unique<Loop>();
  current_ = this;
}

EventLoop::EventLoop(Unbound /*unbound*/) : loop_(std::make_unique<Loop>()) {}

EventLoop::~EventLoop() {
  if (current_ == this) current_ = nullptr;
}

EventLoop& EventLoop::current() {
  if (current_ == nullptr) throw std::logic_error("this thread has no event loop");
  return *current_;
}

EventLoop::Use::Use(EventLoop& loop) noexcept : former_(std::exchange(current_, &loop)) {}

EventLoop::Use::~Use() {
  current_ = former_;
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
