// SPDX-License-Identifier: MIT
//
// What has to be true of a world. A violation goes to World::fail.
#pragma once

#include "stress/simulation/table_reader.h"
#include "stress/simulation/table_writer.h"
#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

/// The program of a process that runs one of this kind, else null.
template <class P>
P* programOf(const Process& process) {
  return process.state() == Process::State::running ? dynamic_cast<P*>(process.program()) : nullptr;
}

/// The writer that holds the lock, or null.
TableWriter* lockHolder(const World& world);

/// After every step.
void checkAlways(World& world);

/// When nothing moves any more and there is a writer: every reader has read everything, and
/// the writer knows of no connection that has ended.
void checkAtRest(World& world);

/// When the writer has been gone for a while: every reader has been told.
void checkDepartureTold(World& world);

/// When a file of this name was written at rest: every watcher of the directory was told.
void checkNewsTold(World& world, const std::string& file);

}  // namespace Zorbe::Test::Simulation
