// SPDX-License-Identifier: MIT
#include "brask/linux/event_loop.h"

#include <stdexcept>

#include "brask/linux/current_loop.h"
#include "brask/linux/loop.h"

namespace Brask::Linux {

namespace {

struct Current {
  EventLoop* eventLoop = nullptr;
  Loop* loop = nullptr;
};

thread_local Current current_;

const Current& requireCurrent() {
  if (current_.loop == nullptr) throw std::logic_error("this thread has no event loop");
  return current_;
}

}  // namespace

EventLoop::EventLoop() {
  if (current_.loop != nullptr) throw std::logic_error("this thread has an event loop already");
  loop_ = std::make_unique<Loop>();
  current_ = {this, loop_.get()};
}

EventLoop::~EventLoop() {
  if (current_.eventLoop == this) current_ = {};
}

EventLoop& EventLoop::current() {
  return *requireCurrent().eventLoop;
}

void EventLoop::run() {
  loop_->run();
}

void EventLoop::stop() noexcept {
  loop_->stop();
}

[[gnu::hot]] bool EventLoop::turn(double maxWaitSeconds) {
  return loop_->turn(maxWaitSeconds);
}

int EventLoop::fd() const noexcept {
  return loop_->fd();
}

Loop& currentLoop() {
  return *requireCurrent().loop;
}

}  // namespace Brask::Linux
