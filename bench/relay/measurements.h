// SPDX-License-Identifier: MIT
//
// What is measured of the relay, each in a process of its own.
#pragma once

#include <string>

#include "harness/results.h"

namespace Bench {

/// Changes a second from a table to a mirrored one, beside what the server takes of the same
/// commands.
void measureRate(Results& results);

/// From publishing a change to the wake-up of a follower of the mirrored table, beside the same
/// by the server's commands alone. `delay`: nanoseconds of the network between a host and the
/// server.
void measureWakeUp(Results& results, const std::string& placement, double delay);

/// The first transfer of all records, to the server and from it.
void measureTransfer(Results& results);

/// What a change costs each process, the network and the server's memory, by the size of the batch
/// that it is in and by the number of mirrors; and what mirrors cost that have nothing to do.
void measureCosts(Results& results);

/// How long it takes to catch up with changes that went on while the server was away.
void measureOutages(Results& results);

}  // namespace Bench
