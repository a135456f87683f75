// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <system_error>

#include "fault/fault.h"
#include "unit/platform/brask/linux/loop_fixture.h"

namespace LoopTesting {

/// A fixture whose tests make calls fail: each of these has to strike, and none goes on
/// striking in the next test.
template <typename Fixture>
class WithFaults : public Fixture {
 protected:
  WithFaults() { Zorbe::Test::Fault::reset(); }
  ~WithFaults() override {
    EXPECT_EQ(std::vector<std::string>{}, Zorbe::Test::Fault::unfired());
    Zorbe::Test::Fault::reset();
  }

  /// The text of the std::system_error that comes out of `action`, "" when none does.
  static std::string refusalOf(const std::function<void()>& action) {
    return textOf<std::system_error>(action);
  }
};

}  // namespace LoopTesting
