// SPDX-License-Identifier: MIT
//
// A table whose writer, readers or directory run out of resources.
#pragma once

#include <brask/linux/event_loop.h>
#include <zorbe/util.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/fixture.h"
#include "support/limits.h"
#include "support/raw_peer.h"
#include "support/roles.h"
#include "support/sanitized.h"

namespace Zorbe::Test {

class ExhaustionTest : public ZorbeTest {
 protected:
  ExhaustionTest() { handler.allowFailures(); }

  /// Connections that never send anything, until the writer's queue has no more room.
  std::vector<RawPeer> fillQueue() const { return RawPeer::fillQueue(root.path); }

  RawPeer connect() const { return RawPeer::connect(root.path); }

  /// Whether a message of level 0 contains this text.
  bool isReported(const std::string& text) const {
    for (const std::string& message : handler.texts(0)) {
      if (message.find(text) != std::string::npos) return true;
    }
    return false;
  }

  SharedTable table;
  RootPath root{handler, "quotes", true};
};

}  // namespace Zorbe::Test
