// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace Zorbe::Test::RelayChaos {

/// One kind of what happens to the hosts.
struct Event {
  /// Returns what it has hit; an empty text when it is not possible now.
  std::function<std::string()> happen;
  const char* name;
};

}  // namespace Zorbe::Test::RelayChaos
