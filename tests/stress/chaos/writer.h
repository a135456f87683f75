// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "stress/chaos/reader.h"
#include "stress/chaos/shared_state.h"
#include "support/child_process.h"

namespace Zorbe::Test::Chaos {

/// Becomes the writer of the table as soon as there is none, and verifies then that no change of
/// the writers before it is missing. Handles "publish COUNT REQUEST"; leaves on SIGTERM.
/// `oraclePath` is the file of the MutualExclusionOracle.
void runCandidate(Channel& parent, SharedState& shared, ProcessState& state,
                  const std::string& oraclePath, Kind kind, Flaw flaw);

}  // namespace Zorbe::Test::Chaos
