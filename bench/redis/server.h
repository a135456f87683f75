// SPDX-License-Identifier: MIT
//
// A Redis server of a benchmark's own on a local socket, and the connections to it.
#pragma once

#include <hiredis/hiredis.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "harness/processes.h"

namespace Bench {

struct FreeRedis {
  void operator()(redisContext* context) const { redisFree(context); }
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using RedisConnection = std::unique_ptr<redisContext, FreeRedis>;
using RedisReply = std::unique_ptr<redisReply, FreeRedis>;

/// What a call of the client library has returned. Throws std::runtime_error for none, and for an
/// error that the server reports.
RedisReply require(void* reply, const RedisConnection& connection);

/// The next answer to what was sent, or the next message.
RedisReply nextReply(const RedisConnection& connection);

/// Sends one command, words that may have any bytes, and returns its answer.
RedisReply ask(const RedisConnection& connection, const std::vector<std::string>& words);

/// Sends one command; nextReply() returns its answer.
void send(const RedisConnection& connection, const std::vector<std::string>& words);

/// Returns when something listens at a local socket.
RedisConnection connectTo(const std::string& socketPath);

/// Keeps everything in memory, and ends with this object or with the process that has made it.
class RedisServer {
 public:
  RedisServer() = default;
  ~RedisServer();
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;

  /// Starts it; it has nothing.
  void start();

  /// Ends it at once.
  void kill();

  /// Returns when it listens.
  RedisConnection connect() const { return connectTo(socketPath()); }

  std::string socketPath() const { return directory_.path() + "/redis"; }
  pid_t pid() const { return pid_; }

 private:
  ScratchDirectory directory_;
  pid_t pid_ = -1;
};

}  // namespace Bench
