// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

/// Callbacks come in the process that the object belongs to, and to no object whose process
/// has ended. (What a dead process still runs is its own memory's clean-up.)
inline void expectOwnCallback(const Process& process, const std::string& callback) {
  if (Process::running() != &process || process.state() != Process::State::running)
    Process::running()->world().fail(callback + " reaches an object of " + process.name());
}

}  // namespace Zorbe::Test::Simulation
