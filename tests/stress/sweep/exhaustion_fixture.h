// SPDX-License-Identifier: MIT
//
// A table whose writer, readers or directory get no more of what they need.
#pragma once

#include <brask/linux/event_loop.h>
#include <zorbe/util.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/limits.h"
#include "support/raw_peer.h"
#include "support/roles.h"
#include "support/sanitized.h"
#include "support/zorbe_test.h"

namespace Zorbe::Test {

class ExhaustionTest : public ZorbeTest {
 protected:
  ExhaustionTest() { handler.allowFailures(); }

  /// Connections that never send anything, until the writer's queue has no more room.
  std::vector<RawPeer> fillQueue() const {
    std::vector<RawPeer> peers;
    for (RawPeer peer = connect(); peer.isOpen(); peer = connect())
      peers.push_back(std::move(peer));
    EXPECT_EQ(EAGAIN, errno);
    return peers;
  }

  RawPeer connect() const { return RawPeer::connect(root.path); }

  void awaitReaders(Brask::Linux::EventLoop& loop, const TableWriter& writer, size_t count) {
    EXPECT_TRUE(turnUntil(loop, [&] { return writer.readers.size() == count; }));
  }

  /// Whether a message of level 0 holds this text.
  bool isTold(const std::string& text) const {
    for (const std::string& told : handler.texts(0)) {
      if (told.find(text) != std::string::npos) return true;
    }
    return false;
  }

  SharedTable table;
  RootPath root{handler, "quotes", true};
};

}  // namespace Zorbe::Test
