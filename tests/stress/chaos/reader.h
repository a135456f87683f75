// SPDX-License-Identifier: MIT
#pragma once

#include "stress/chaos/board.h"
#include "support/child_process.h"

namespace Zorbe::Test::Chaos {

/// Follows the quotes table as its example does, until SIGTERM, and publishes its
/// position at its place.
void runReader(Channel& parent, Place& place, Flaw flaw);

}  // namespace Zorbe::Test::Chaos
