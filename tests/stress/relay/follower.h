// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "stress/relay/shared_state.h"
#include "support/channel.h"

namespace Zorbe::Test::RelayChaos {

/// Follows the table below `root` until SIGTERM, and reports what must not be: a record that was
/// never written, or a key that goes back.
void runFollower(Channel& parent, SharedState& shared, unsigned mirror, const std::string& root);

}  // namespace Zorbe::Test::RelayChaos
