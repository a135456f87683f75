// SPDX-License-Identifier: MIT
#include <uv.h>

#include <stdexcept>
#include <vector>

#include "loop/driver.h"

namespace Bench {

namespace {

void require(int error) {
  if (error < 0) throw std::runtime_error(std::string("libuv: ") + uv_strerror(error));
}

class Libuv : public LoopDriver {
 public:
  Libuv() {
    require(uv_loop_init(&loop_));
    require(uv_timer_init(&loop_, &timer_));
    require(uv_idle_init(&loop_, &idle_));
    loop_.data = idle_.data = this;
  }

  ~Libuv() override {
    uv_walk(
        &loop_, [](uv_handle_t* handle, void*) { uv_close(handle, nullptr); }, nullptr);
    static_cast<void>(uv_run(&loop_, UV_RUN_DEFAULT));
    static_cast<void>(uv_loop_close(&loop_));
  }

  std::string name() const override { return "libuv"; }

  void watch(int fd) override {
    polls_.push_back(std::make_unique<uv_poll_t>());
    require(uv_poll_init(&loop_, polls_.back().get(), fd));
    require(uv_poll_start(polls_.back().get(), UV_READABLE, [](uv_poll_t* poll, int, int) {
      ++static_cast<Libuv*>(poll->loop->data)->events_;
    }));
  }

  void dispatch(int count) override {
    for (const int end = events_ + count; events_ < end;) uv_run(&loop_, UV_RUN_NOWAIT);
  }

  void rearm(int count) override {
    for (int each = 0; each < count; ++each) {
      const auto milliseconds = static_cast<uint64_t>(1000000 + 1000 * (each % 7));
      require(uv_timer_start(
          &timer_, [](uv_timer_t*) {}, milliseconds, 0));
    }
    require(uv_timer_stop(&timer_));
  }

  // An idle handle: a timer that restarts itself with no delay keeps this version of the library
  // inside one turn for ever.
  void turn(int count) override {
    left_ = count;
    require(
        uv_idle_start(&idle_, [](uv_idle_t* idle) { --static_cast<Libuv*>(idle->data)->left_; }));
    while (left_ > 0) uv_run(&loop_, UV_RUN_NOWAIT);
    require(uv_idle_stop(&idle_));
  }

 private:
  uv_loop_t loop_;
  uv_timer_t timer_;
  uv_idle_t idle_;
  int events_ = 0;
  int left_ = 0;
  std::vector<std::unique_ptr<uv_poll_t>> polls_;
};

}  // namespace

std::unique_ptr<LoopDriver> makeLibuv() {
  return std::make_unique<Libuv>();
}

}  // namespace Bench
