// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/timer.h"
#include "server/address.h"
#include "server/encryption.h"
#include "server/reply.h"

struct redisAsyncContext;

namespace Zorbe::Relay {

/// Collects the words of one command. Bytes are copied.
class Command {
 public:
  explicit Command(std::string_view name) { add(name); }

  Command& add(std::string_view word);
  Command& add(uint64_t number) { return add(std::to_string(number)); }

  size_t words() const { return lengths_.size(); }
  size_t bytes() const { return text_.size(); }

 private:
  friend class Connection;

  std::string text_;
  std::vector<size_t> lengths_;
};

/// One connection to one server, in the current event loop. Commands may be sent before it is
/// established. Callbacks come from the loop; a callback may destroy the connection. The process
/// ignores SIGPIPE from then on: a server may end while it is written to.
class Connection {
 public:
  using Answer = std::function<void(const Reply&)>;

  class Owner {
   public:
    virtual ~Owner() = default;

    /// The connection could not be established, or has ended. No callback follows.
    virtual void connectionEnded(const std::string& why) = 0;
  };

  /// Begins to connect; encrypted, when `tls` has a value. What fails at once is reported from the
  /// loop, too.
  Connection(const Endpoint& endpoint, Owner& owner, const std::optional<TlsFiles>& tls);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Drops what was not answered.
  ~Connection();

  /// Sends a command; `answer` is called with what the server says, unless the connection ends
  /// before.
  void send(const Command& command, Answer answer);

  /// Commands that were not answered yet, and how many were.
  size_t pending() const { return pending_; }
  uint64_t answered() const { return answered_; }

 private:
  static void receive(redisAsyncContext* context, void* reply, void* answer);
  static void connected(const redisAsyncContext* context, int status);
  static void disconnected(const redisAsyncContext* context, int status);
  static void end(const redisAsyncContext* context);

  void fail(const std::string& why);
  void reportFailure();

  Owner& owner_;
  std::unique_ptr<Encryption> encryption_;
  redisAsyncContext* context_;  // null after the connection has ended
  std::string failure_;         // of the attempt to connect, until it was reported
  Table::Timer<Connection> failureTimer_{*this, &Connection::reportFailure};
  size_t pending_ = 0;
  uint64_t answered_ = 0;
};

}  // namespace Zorbe::Relay
