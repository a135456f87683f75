// SPDX-License-Identifier: MIT
//
// Several hosts on one machine: each has a base directory of its own, and one server is between
// them. Publisher and mirrors are what zorbe-relay is made of, each in a process of its own.
#pragma once

#include <zorbe/table/fields.h>
#include <zorbe/table/options.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "harness/processes.h"
#include "harness/roles.h"
#include "redis/server.h"
#include "relay/link.h"
#include "table/key.h"

namespace Bench {

/// 64 bytes, under keys of 8.
struct Value {
  uint64_t words[8];
};
ZORBE_FIELDS(Value, words);

inline constexpr const char* kTable = "bench";

/// What a publisher or a mirror has done, as its process says after each turn of its loop.
struct Report {
  std::atomic<uint64_t> changes{0};   // sent, or followed
  std::atomic<uint64_t> finished{0};  // comparisons, or transfers
  std::atomic<double> memory{0};      // bytes of its own that one of them has taken, at most
};

/// A publisher or a mirror in a process of its own, which ends with this object.
class RelayProcess {
 public:
  explicit RelayProcess(const std::function<void(Report&)>& body);

  /// Lets it begin.
  void release() { process_.release(); }

  const Report& report() const { return *report_; }

  /// Nanoseconds that it has used.
  double processorTime() const;

 private:
  Report* report_;
  Children process_;
};

/// The directories of the hosts, and the server, which runs.
class Hosts {
 public:
  /// `delay`: nanoseconds of the network from each host to the server, and of the way back.
  explicit Hosts(size_t mirrors, double delay = 0);

  RedisServer& server() { return server_; }
  const RedisServer& server() const { return server_; }

  /// Of one of the hosts with the server.
  RedisConnection connect() const { return connectTo(socketPath()); }

  /// The writer's host, and that of a mirror. Their messages go nowhere.
  Zorbe::Table::Options source() const;
  Zorbe::Table::Options mirrored(size_t number) const;

  /// Begin when they are released. Made before this process has a loop.
  std::unique_ptr<RelayProcess> publisher() const;
  std::unique_ptr<RelayProcess> mirror(size_t number) const;

 private:
  std::string socketPath() const { return link_ ? link_->socketPath() : server_.socketPath(); }
  Zorbe::Table::Options optionsOf(const std::string& host) const;
  [[noreturn]] void publish(Report& report) const;
  [[noreturn]] void follow(size_t number, Report& report) const;

  ScratchDirectory directory_;
  RedisServer server_;
  std::unique_ptr<Link> link_;  // none without a delay
  mutable SilentHandler log_;
};

}  // namespace Bench
