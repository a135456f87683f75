// SPDX-License-Identifier: MIT
//
// What the conformance suite needs of a platform beside the functions of its contracts: one
// definition of makeLoop().
#pragma once

#include <memory>

namespace Zorbe::Conformance {

/// The loop that the getters of <brask/platform.h> hand out controls of.
class Loop {
 public:
  virtual ~Loop() = default;

  /// Makes the callbacks that are due. With none, waits for one, `seconds` at most; 0.0 does
  /// not wait. May return earlier, and without a callback.
  virtual void turn(double seconds) = 0;
};

/// Defined by the owner of the platform. Called at the start of each test that turns a loop, on
/// the thread of the test, before the first getter; the loop is deleted at the end of the test,
/// after its controls. A platform with one loop for ever returns an object that turns that one.
std::unique_ptr<Loop> makeLoop();

}  // namespace Zorbe::Conformance
