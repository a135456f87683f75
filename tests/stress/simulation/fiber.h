// SPDX-License-Identifier: MIT
//
// A stack for code that stops inside a call, and continues later.
#pragma once

#include "support/noncopyable.h"

#include <ucontext.h>

#include <cstddef>
#include <functional>

namespace Zorbe::Test::Simulation {

/// Exceptions may be thrown and caught on either side, but not across. One thread.
class Fiber : private NonCopyable {
 public:
  explicit Fiber(std::function<void()> body);
  ~Fiber();

  /// From outside: runs the body until it suspends or ends. Keeps errno.
  void resume();

  /// From inside: returns to the caller of `resume`.
  void suspend();

  bool finished() const { return finished_; }

 private:
  // The C++ run time's state of exceptions that are being handled belongs to a stack.
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
