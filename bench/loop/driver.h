// SPDX-License-Identifier: MIT
//
// Event loops, all with the same work.
#pragma once

#include <memory>
#include <string>

namespace Bench {

class LoopDriver {
 public:
  virtual ~LoopDriver() = default;
  virtual std::string name() const = 0;

  /// From now on the loop watches `fd` for something to read.
  virtual void watch(int fd) = 0;

  /// Turns, without waiting, until `count` descriptor events were dispatched. One watched
  /// descriptor is ready all the time.
  virtual void dispatch(int count) = 0;

  /// Moves one armed timer `count` times.
  virtual void rearm(int count) = 0;

  /// Turns until a callback that asks for another turn was run `count` times. No descriptor
  /// is ready.
  virtual void turn(int count) = 0;
};

std::unique_ptr<LoopDriver> makeBundledLoop();
std::unique_ptr<LoopDriver> makeLibuv();
std::unique_ptr<LoopDriver> makeLibevent();

}  // namespace Bench
