// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <random>
#include <string>

#include "core/timer.h"
#include "server/connection.h"
#include "server/credentials.h"

namespace Zorbe::Relay {

/// Keeps a connection to the server: asks the sentinels where it is, authenticates, chooses the
/// database, and connects again after a pause when it ends or does not answer.
class Session : public Connection::Owner {
 public:
  struct Options {
    Address address;
    Credentials credentials;
    bool writes = false;  // the server has to be one that keeps what is written
  };

  class Owner {
   public:
    virtual ~Owner() = default;

    /// The server is there, and commands can be sent.
    virtual void sessionBegan() = 0;

    /// It is not there any more: no answer comes to what was sent.
    virtual void sessionEnded() = 0;
  };

  Session(const Options& options, Owner& owner, Brask::Platform::DebugHandler& log);

  bool isReady() const { return isReady_; }
  void send(const Command& command, Connection::Answer answer);

  /// What has ended the last attempt to connect, with the server's address, and how many have ended
  /// since a session lasted for a second. Empty once one has.
  std::string failure() const;
  unsigned failedAttempts() const { return attempts_; }

  /// Ends the connection, and makes a new one after a pause. `why` is logged, but not each time
  /// the same.
  void restart(const std::string& why);

 private:
  void connectionEnded(const std::string& why) override;
  void connect();
  void askSentinel();
  void greet();
  void examine(const Reply& info);
  void watch();
  void makeConnection(const Endpoint& endpoint);
  void connectTo(const Endpoint& endpoint);
  void authenticate();
  void select();
  void sendChecked(const Command& command, void (Session::*next)());

  Options options_;
  Owner& owner_;
  Brask::Platform::DebugHandler& log_;
  std::unique_ptr<Connection> connection_;
  Endpoint place_;       // that it is connected with, or trying to be
  size_t sentinel_ = 0;  // the one to ask next
  bool isReady_ = false;
  std::string lastFailure_;
  uint64_t answered_ = 0;  // of the connection, when it was looked at last
  int silentTicks_ = 0;
  unsigned attempts_ = 0;  // since a session lasted
  std::minstd_rand random_;
  Table::Timer<Session> connectTimer_{*this, &Session::connect};
  Table::Timer<Session> watchTimer_{*this, &Session::watch};
};

}  // namespace Zorbe::Relay
