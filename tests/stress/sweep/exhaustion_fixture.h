// SPDX-License-Identifier: MIT
//
// A table whose writer, readers or directory get no more of what they need.
#pragma once

#include <brask/linux/event_loop.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <zorbe/util.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/limits.h"
#include "support/roles.h"
#include "support/sanitized.h"
#include "support/zorbe_test.h"

namespace Zorbe::Test {

/// A connection to the writer that never says anything, made without waiting.
class Knock {
 public:
  Knock() : fd_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
  Knock(const Knock&) = delete;
  Knock& operator=(const Knock&) = delete;
  ~Knock() { ::close(fd_); }

  /// 0, or the errno of connect(2).
  int connect(Brask::Platform::DebugHandler& handler, const RootPath& root) {
    sockaddr_un address{};
    const auto length = Util::createSockaddr(handler, &address, root.path);
    const auto* const where = reinterpret_cast<const sockaddr*>(&address);
    return ::connect(fd_, where, length) == 0 ? 0 : errno;
  }

 private:
  int fd_;
};

class ExhaustionTest : public ZorbeTest {
 protected:
  using Knocks = std::vector<std::unique_ptr<Knock>>;

  ExhaustionTest() { handler.allowFailures(); }

  static Knocks makeKnocks(size_t count) {
    Knocks knocks;
    while (knocks.size() < count) knocks.push_back(std::make_unique<Knock>());
    return knocks;
  }

  /// Knocks until there is no more room in the writer's queue.
  Knocks fillQueue() {
    Knocks knocks;
    int error = 0;
    while (error == 0) {
      auto knock = std::make_unique<Knock>();
      error = knock->connect(handler, root);
      if (error == 0) knocks.push_back(std::move(knock));
    }
    EXPECT_EQ(EAGAIN, error);
    return knocks;
  }

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
