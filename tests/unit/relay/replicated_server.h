// SPDX-License-Identifier: MIT
#pragma once

#include "unit/relay/redis_server.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Zorbe::Test {

/// A master, its replica, and a sentinel that makes the replica the master when the master is lost.
class ReplicatedServer {
 public:
  /// Starts them in `directory`, and returns when the sentinel knows both.
  explicit ReplicatedServer(const std::string& directory);

  /// Names also a sentinel that is not there, as the first one.
  std::string address(const std::string& master = "tables") const;

  /// Where the replica is, as messages have it.
  std::string replicasPlace() const { return "127.0.0.1:" + std::to_string(replicasPort_); }

  /// The replica misses what the master gets from now on.
  void cutReplicaOff() const;
  void killMaster() { master_->kill(); }

 private:
  void startServers(const std::string& directory);
  void startSentinel(const std::string& directory);
  std::string askSentinel(const std::string& what) const;

  uint16_t mastersPort_ = 0;
  uint16_t replicasPort_ = 0;
  uint16_t sentinelsPort_ = 0;
  std::string sentinelsSocket_;
  std::unique_ptr<RedisServer> master_;
  std::unique_ptr<RedisServer> replica_;
  std::unique_ptr<ChildProcess> sentinel_;
};

}  // namespace Zorbe::Test
