// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "stress/relay/shared_state.h"
#include "support/channel.h"

namespace Zorbe::Test::RelayChaos {

/// The writer of the table below `root`: puts and erases while the state says so, until SIGTERM.
void runWriter(Channel& parent, SharedState& shared, const std::string& root, uint64_t seed);

}  // namespace Zorbe::Test::RelayChaos
