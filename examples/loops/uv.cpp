// SPDX-License-Identifier: MIT
//
// The bundled loop in that of libuv.
#include <uv.h>

#include "program.h"

namespace {

void require(int result) {
  if (result < 0) throw std::runtime_error(uv_strerror(result));
}

/// Closes its handles, and then itself.
class Loop {
 public:
  Loop() { require(uv_loop_init(&loop_)); }
  ~Loop() {
    const auto close = [](uv_handle_t* handle, void*) { uv_close(handle, nullptr); };
    uv_walk(&loop_, close, nullptr);
    static_cast<void>(uv_run(&loop_, UV_RUN_DEFAULT));  // until they are closed
    static_cast<void>(uv_loop_close(&loop_));
  }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  uv_loop_t* get() { return &loop_; }

 private:
  uv_loop_t loop_;
};

void readable(uv_poll_t* poll, int status, int /*events*/) {
  auto& program = *static_cast<Program*>(poll->data);
  if (!(status < 0 ? program.fail(uv_strerror(status)) : program.turn())) uv_stop(poll->loop);
}

void ticked(uv_timer_t* timer) {
  if (!static_cast<Program*>(timer->data)->tick()) uv_stop(timer->loop);
}

}  // namespace

int main(int count, char** words) try {
  Program program(count, words);
  uv_poll_t poll;
  uv_timer_t timer;
  Loop loop;  // destroyed before its handles, and before the descriptor that it polls
  require(uv_poll_init(loop.get(), &poll, program.fd()));
  poll.data = &program;
  require(uv_poll_start(&poll, UV_READABLE, readable));
  require(uv_timer_init(loop.get(), &timer));
  timer.data = &program;
  require(uv_timer_start(&timer, ticked, Program::kTickMilliseconds, Program::kTickMilliseconds));
  static_cast<void>(uv_run(loop.get(), UV_RUN_DEFAULT));
  program.end();
} catch (const std::exception& failure) {
  std::cerr << "loops-uv: " << failure.what() << '\n';
  return 1;
}
