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

/// What one InotifyControl keeps of the path that it watches.
struct InotifyWatcher {
  explicit InotifyWatcher(Platform::InotifyHandler* eventHandler) : handler(eventHandler) {}

  Platform::InotifyHandler* handler;
  std::string path;     // of the last addWatch()
  uint32_t mask = 0;    // likewise
  bool asked = false;   // addWatch() was called, and removeWatch() not since
  uint64_t number = 0;  // the order of the first addWatch() of each
  Handle registration;  // invalid while nothing is watched

  bool orphaned = false;       // refused because the path was removed: see InotifyTree
  uint64_t lastEnd = 0;        // when its directory ended, in the order of InotifyWatches
  std::set<uint64_t> notices;  // not delivered yet: see InotifyNotices
  unsigned refusals = 0;       // of the notices
  unsigned ends = 0;           // likewise
};

}  // namespace Brask::Linux
