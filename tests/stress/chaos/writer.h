// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "stress/chaos/board.h"
#include "support/child_process.h"

namespace Zorbe::Test::Chaos {

/// Becomes the writer of the quotes table as soon as there is none, and tells at its place of
/// the board what it has published and what it has heard from the readers. Obeys
/// "publish COUNT REQUEST"; leaves on SIGTERM. `witnessPath` names the witness's file.
void playCandidate(Channel& parent, Board& board, Place& place, const std::string& witnessPath,
                   Flaw flaw);

}  // namespace Zorbe::Test::Chaos
