// SPDX-License-Identifier: MIT
//
// guide-reader: prints each number that it reads, until SIGINT or SIGTERM.
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <zorbe/exceptions.h>

#include <csignal>
#include <iostream>
#include <memory>

#include "follower.h"
#include "timer.h"

namespace {

Brask::Linux::EventLoop* running = nullptr;
volatile std::sig_atomic_t ended = 0;

extern "C" void end(int /*signal*/) {
  ended = 1;
  running->stop();
}

// Without SA_RESTART, so that a connect(2) that waits for a stopped writer returns.
void endOn(int signal) {
  struct sigaction action {};
  action.sa_handler = end;
  static_cast<void>(::sigaction(signal, &action, nullptr));  // fails for a wrong number only
}

}  // namespace

int main() try {
  Brask::Linux::StreamDebugHandler log(std::cerr, 0, {200, 50});
  Brask::Linux::EventLoop loop;
  running = &loop;
  endOn(SIGINT);
  endOn(SIGTERM);
  std::unique_ptr<Follower> follower;
  Timer begin([&] {
    try {
      follower = std::make_unique<Follower>(log);
    } catch (const Brask::Exception&) {  // logged
      begin.start(0.25);
    }
  });
  begin.start(0.0);
  while (ended == 0) {
    try {
      loop.run();
    } catch (const Brask::Exception&) {  // logged: the directory cannot be created again
      follower.reset();                  // not from inside a callback: here none is running
      begin.start(0.25);
    }
  }
} catch (const std::exception& problem) {
  std::cerr << "guide-reader: " << problem.what() << std::endl;
  return 1;
}
