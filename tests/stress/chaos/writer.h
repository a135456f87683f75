// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "stress/chaos/board.h"
#include "support/child_process.h"

namespace Zorbe::Test::Chaos {

/// Becomes the writer of the quotes table as soon as there is none, and publishes its own
/// position and the reports of the readers on the board. Handles "publish COUNT REQUEST"; leaves
/// on SIGTERM. `oraclePath` is the file of the MutualExclusionOracle.
void runCandidate(Channel& parent, Board& board, Place& place, const std::string& oraclePath,
                  Flaw flaw);

}  // namespace Zorbe::Test::Chaos
