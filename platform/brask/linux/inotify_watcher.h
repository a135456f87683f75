// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "brask/linux/slot_table.h"

namespace Brask::Platform {
class InotifyHandler;
}

namespace Brask::Linux {

/// The watching side of a path: what one InotifyControl keeps of it.
struct InotifyWatcher {
  explicit InotifyWatcher(Platform::InotifyHandler* eventHandler) : handler(eventHandler) {}

  Platform::InotifyHandler* handler;
  std::string path;     // the last one asked for
  uint32_t mask = 0;    // and what is watched for
  bool asked = false;   // a watch was asked for, and not ended by the client
  uint64_t number = 0;  // counts those that asked
  Handle registration;  // invalid while nothing is watched

  bool orphaned = false;       // refused because the path is gone: see InotifyTree
  uint64_t lastEnd = 0;        // when its directory ended, in the order of InotifyWatches
  std::set<uint64_t> notices;  // those that wait for it, see InotifyNotices
  unsigned refusals = 0;       // of the notices
  unsigned ends = 0;           // likewise
};

}  // namespace Brask::Linux
