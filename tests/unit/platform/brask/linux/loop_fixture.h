// SPDX-License-Identifier: MIT
//
// What the tests of the bundled loop share: a loop per test, and descriptors to watch.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "fault/fault.h"
#include "support/fixture.h"
#include "support/loop.h"
#include "support/watched.h"

namespace LoopTesting {

namespace Fault = Zorbe::Test::Fault;
using Clock = std::chrono::steady_clock;

// Long enough that only a hang meets it.
constexpr double kPatience = 20.0;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

using Zorbe::Test::Directory;
using Zorbe::Test::FdProbe;
using Zorbe::Test::InotifyProbe;
using Zorbe::Test::Pair;
using Zorbe::Test::readable;
using Zorbe::Test::TimerProbe;
using Zorbe::Test::touch;

/// The text of the `Error` that comes out of `action`, "" when none does.
template <class Error>
std::string textOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

/// The text of the std::system_error that comes out of `action`, "" when none does.
inline std::string refusalOf(const std::function<void()>& action) {
  return textOf<std::system_error>(action);
}

/// A test with a loop.
class LoopTest : public Zorbe::Test::ZorbeTest {
 protected:
  LoopTest() { Fault::reset(); }  // the calls that have made the loop are not counted

  /// Turns until `reached`; false when that takes too long.
  bool turnUntil(const std::function<bool()>& reached) {
    return Zorbe::Test::turnUntil(*loop, reached);
  }

  /// Turns until there is nothing left to do.
  void settle() {
    while (loop->turn(0)) {
    }
  }

  std::unique_ptr<Brask::Linux::EventLoop> loop = std::make_unique<Brask::Linux::EventLoop>();
};

}  // namespace LoopTesting
