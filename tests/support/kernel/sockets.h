// SPDX-License-Identifier: MIT
//
// Sequenced-packet sockets with abstract names as unix(7) and Linux have them. Everything
// returns 0 or an errno and blocks nowhere: EAGAIN: a blocking call would wait.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace Zorbe::Test::Kernel {

struct Socket;
using SocketRef = std::shared_ptr<Socket>;

struct Socket {
  enum class State { kFresh, kBound, kListening, kConnected };

  int owner = 0;  ///< the process; of an end that is not accepted yet, the listener's
  State state = State::kFresh;
  bool nonBlocking = false;
  bool closed = false;
  std::string name;
  std::size_t backlog = 0;
  std::deque<SocketRef> pending;    ///< connected to, not accepted yet
  std::deque<std::string> packets;  ///< to be received
  std::weak_ptr<Socket> peer;
  bool peerClosed = false;
  int error = 0;  ///< reported once, by the next send or receive
};

class Sockets {
 public:
  /// A send finds the queue full when `queueLimit` packets are not received yet. `covered`
  /// receives names of what has happened.
  Sockets(std::size_t queueLimit, std::set<std::string>& covered)
      : queueLimit_(queueLimit), covered_(covered) {}

  int bind(const SocketRef& socket, const std::string& name);
  int listen(Socket& socket, int backlog);
  int connect(const SocketRef& socket, const std::string& name);
  int accept(Socket& listener, SocketRef& accepted);
  int send(Socket& socket, const std::string& packet);

  /// What does not fit into `capacity` bytes is lost. The end of the connection is an
  /// empty packet.
  int receive(Socket& socket, std::size_t capacity, std::string& packet);

  /// Ends a connection in both directions: what has arrived can still be received.
  void shutdown(Socket& socket);

  /// The last descriptor is closed: the name is free, and the peer sees the end.
  void close(const SocketRef& socket);

  /// Poll would say so: a packet, an end, an error or a connection to accept.
  bool readable(const Socket& socket) const;

  /// Poll would say so: a packet can be sent.
  bool writable(const Socket& socket) const;

  /// A connect that waits would return: with a place in the queue, or refused.
  bool decided(const std::string& name) const;

  /// Who has the name, or null.
  SocketRef holder(const std::string& name) const;

 private:
  static bool isFull(const Socket& listener) { return listener.pending.size() > listener.backlog; }
  void hangUp(Socket& socket, bool dataLost);

  std::size_t queueLimit_;
  std::set<std::string>& covered_;
  std::map<std::string, std::weak_ptr<Socket>> names_;
};

}  // namespace Zorbe::Test::Kernel
