// SPDX-License-Identifier: MIT
#include "unit/relay/replicated_server.h"

#include "support/descriptor.h"
#include "support/timeout.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

namespace Zorbe::Test {

namespace {

// Somebody else may take it before a server does: then the server ends.
uint16_t findFreePort() {
  const Descriptor fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const place = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (::bind(fd.get(), place, size) != 0 || ::getsockname(fd.get(), place, &size) != 0) {
    throw std::runtime_error("there is no free port");
  }
  return ntohs(address.sin_port);
}

// Waits for what a server says only to who asks.
void await(const std::function<bool()>& done, const char* what) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error(what);
  }
}

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::unique_ptr<RedisServer> startServer(const std::string& directory, uint16_t port,
                                         std::vector<std::string> options) {
  std::filesystem::create_directories(directory);
  options.insert(options.end(), {"--bind", "127.0.0.1", "--port", std::to_string(port),
                                 "--repl-diskless-sync-delay", "0"});
  return std::make_unique<RedisServer>(directory, options);
}

}  // namespace

ReplicatedServer::ReplicatedServer(const std::string& directory) {
  for (int attempts = 1; !sentinel_; ++attempts) {
    try {
      startServers(directory);
      startSentinel(directory);
    } catch (const std::runtime_error&) {
      sentinel_.reset();
      if (attempts == 5) throw;
    }
  }
  await([&] { return has(askSentinel("replicas"), std::to_string(replicasPort_)); },
        "the sentinel does not know the replica");
}

void ReplicatedServer::startServers(const std::string& directory) {
  mastersPort_ = findFreePort();
  master_ = startServer(directory + "/master", mastersPort_, {});
  replicasPort_ = findFreePort();
  replica_ = startServer(directory + "/replica", replicasPort_,
                         {"--replicaof", "127.0.0.1 " + std::to_string(mastersPort_)});
  await(
      [&] {
        return has(master_->ask({"INFO", "replication"}), "state=online");
      },
      "the replica is not online");
}

// It may ask for the replicas only once while all is well: they have to be there before.
void ReplicatedServer::startSentinel(const std::string& directory) {
  sentinelsPort_ = findFreePort();
  sentinelsSocket_ = directory + "/socket";
  const std::string file = directory + "/sentinel.conf";
  std::ofstream(file) << "bind 127.0.0.1\n"
                      << "port " << sentinelsPort_ << "\n"
                      << "unixsocket " << sentinelsSocket_ << "\n"
                      << "sentinel monitor tables 127.0.0.1 " << mastersPort_ << " 1\n"
                      << "sentinel down-after-milliseconds tables 300\n"
                      << "sentinel failover-timeout tables 1000\n";
  sentinel_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{ZORBE_REDIS_SERVER, file, "--sentinel"});
  while (!has(sentinel_->receive(), "+monitor master tables")) continue;
}

std::string ReplicatedServer::askSentinel(const std::string& what) const {
  return askServer(sentinelsSocket_, {"SENTINEL", what, "tables"});
}

std::string ReplicatedServer::address(const std::string& master) const {
  return "redis+sentinel://127.0.0.1:1,127.0.0.1:" + std::to_string(sentinelsPort_) + "/" + master;
}

// It cannot connect again: the master has no such user.
void ReplicatedServer::cutReplicaOff() const {
  EXPECT_EQ(replica_->ask({"CONFIG", "SET", "masteruser", "nobody", "masterauth", "nothing"}),
            "OK");
  EXPECT_EQ(master_->ask({"CLIENT", "KILL", "TYPE", "replica"}), "1");
}

}  // namespace Zorbe::Test
