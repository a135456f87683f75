// SPDX-License-Identifier: MIT
//
// guide-monitor: prints when the table gets a writer, and when that ends. It does not read.
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <poll.h>
#include <zorbe/exceptions.h>
#include <zorbe/unlock.h>

#include <cerrno>
#include <iostream>
#include <string>

#include "timer.h"

namespace {

class Monitor : public Zorbe::WriterUnlockSm {
 public:
  Monitor(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root)
      : WriterUnlockSm(debugHandler, "monitor", root) {
    retry_.start(0.0);
  }

  // The writer has ended, or there is none. Not the place to destroy this object.
  void writerUnlocked() override {
    print("no writer");
    retry_.start(0.5);
  }

 private:
  void connect() {
    try {
      doConnect();  // without a writer: writerUnlocked follows in 0.1 s
      if (fdControl->fd() >= 0) print("a writer");
    } catch (const Brask::Exception&) {  // logged: no descriptor, no permission
      retry_.start(0.5);
    }
  }

  void print(const char* state) {
    if (state != printed_) std::cout << state << std::endl;
    printed_ = state;
  }

  std::string printed_;
  Timer retry_{[this] { connect(); }};
};

// The place of a loop that the program has already: it polls the bundled one among others.
void serve(Brask::Linux::EventLoop& loop) {
  pollfd ready{loop.fd(), POLLIN, 0};
  while (::poll(&ready, 1, -1) >= 0 || errno == EINTR) loop.turn(0);
}

}  // namespace

int main() try {
  Brask::Linux::StreamDebugHandler log(std::cerr, 0, {200, 50});
  Brask::Linux::EventLoop loop;
  Monitor monitor(log, Zorbe::RootPath(log, "guide", false));
  serve(loop);
} catch (const std::exception& problem) {
  std::cerr << "guide-monitor: " << problem.what() << std::endl;
  return 1;
}
