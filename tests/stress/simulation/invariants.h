// SPDX-License-Identifier: MIT
//
// The invariants of a world. A violation is passed to World::fail.
#pragma once

#include "stress/simulation/stepper.h"
#include "stress/simulation/table_reader.h"
#include "stress/simulation/table_writer.h"
#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

/// The writer that holds the lock, or null.
TableWriter* lockHolder(const World& world);

/// After every step.
void checkAlways(World& world);

/// When all processes are idle and there is a writer: every reader has read everything, and
/// the writer has no connection that has ended.
void checkIdle(World& world);

/// Some time after the end of the writer: every reader has been notified.
void checkDepartureReported(World& world);

/// After a file of this name was written while all were idle: every watcher of the directory
/// has been notified.
void checkChangeReported(World& world, const std::string& file);

}  // namespace Zorbe::Test::Simulation
