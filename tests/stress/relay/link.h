// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "support/channel.h"

namespace Zorbe::Test::RelayChaos {

/// The network between a host and the server: accepts connections on the socket `path`, and moves
/// bytes between each and one with the socket `server`, until the process is killed. Few at a time
/// after the message "slow", until "fast".
void runLink(Channel& parent, const std::string& path, const std::string& server);

}  // namespace Zorbe::Test::RelayChaos
