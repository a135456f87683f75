// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <sstream>

namespace Quotes {

/// Writes the parts as one message, or nothing at all when the level is not wanted.
template <class... Parts>
void log(Brask::Platform::DebugHandler& handler, int level, const Parts&... parts) {
  if (!handler.isEnabled(level)) return;
  std::ostringstream message;
  (message << ... << parts);
  handler.emit(message, level);
}

}  // namespace Quotes
