// SPDX-License-Identifier: MIT
//
// What a publisher sends, sent by a client that does nothing else.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "redis/server.h"

namespace Bench {

/// Sends batches of 1,000 changes, which were made before, and as many of them before the first is
/// answered as a publisher does.
class BareClient {
 public:
  enum class Form {
    kScript,    // the publisher's script
    kCommands,  // XADD and HSET, without what the script checks
  };

  BareClient(const RedisServer& server, Form form);

  /// Sends so many changes, whole batches of them, and returns when all are answered.
  void send(uint64_t changes);

 private:
  using Words = std::vector<std::string>;

  // A batch, and where in its commands the ids are that differ from one sending to the next.
  struct Batch {
    Words add;    // EVALSHA or XADD
    Words store;  // HSET; none with a script
  };

  Batch makeBatch(uint64_t number) const;
  void sendBatch();
  void waitForBatch();

  RedisConnection connection_;
  Form form_;
  std::string digest_;
  std::vector<Batch> batches_;
  uint64_t sent_ = 0;
};

}  // namespace Bench
