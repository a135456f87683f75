// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

/// Callbacks run in the process that the object belongs to, and reach no object whose process
/// has ended. (A dead process only frees its memory.)
inline void expectOwnCallback(const Process& process, const std::string& callback) {
  if (Process::running() != &process || process.state() != Process::State::kRunning)
    Process::running()->world().fail(callback + " reaches an object of " + process.name());
}

}  // namespace Zorbe::Test::Simulation
