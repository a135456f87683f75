// SPDX-License-Identifier: MIT
//
// A stack of its own for code that has to stop in the middle of a call, and go on later.
#pragma once

#include <ucontext.h>

#include <cstddef>
#include <functional>

namespace Zorbe::Test::Simulation {

/// Exceptions may be thrown and caught on either side, but not across. One thread.
class Fiber {
 public:
  explicit Fiber(std::function<void()> body);
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  /// From outside: runs the body until it suspends or ends. Keeps errno.
  void resume();

  /// From inside: goes back to where `resume` was called.
  void suspend();

  bool finished() const { return finished_; }

 private:
  // What the C++ run time knows about exceptions that are under way belongs to a stack.
  struct Exceptions {
    void* caught = nullptr;
    unsigned uncaught = 0;
  };

  // The other side's stack, for the address sanitizer.
  struct Side {
    const void* bottom = nullptr;
    std::size_t size = 0;
    void* fakeStack = nullptr;
  };

  static void enter();
  void leave(bool forGood);
  void swapExceptions();

  std::function<void()> body_;
  bool finished_ = false;
  void* stack_;
  ucontext_t inside_{};
  ucontext_t outside_{};
  Exceptions exceptions_;
  Side insideSide_;
  Side outsideSide_;
};

}  // namespace Zorbe::Test::Simulation
