// SPDX-License-Identifier: MIT
#include "stress/relay/link.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <system_error>
#include <vector>

#include "support/descriptor.h"

namespace Zorbe::Test::RelayChaos {
namespace {

constexpr size_t kFastBytes = 65536;
constexpr size_t kSlowBytes = 512;
constexpr int kSlowMilliseconds = 2;

int require(int result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

Descriptor makeSocket(int flags) {
  return Descriptor(require(::socket(AF_UNIX, SOCK_STREAM | flags, 0), "socket"));
}

/// One direction of a connection. Nothing is read before everything is written: a receiver that is
/// stopped stops the sender.
class Stream {
 public:
  Stream(int from, int to) : from_(from), to_(to) {}

  pollfd wanted() const {
    const bool hasRest = !bytes_.empty();
    return {hasRest ? to_ : from_, static_cast<short>(hasRest ? POLLOUT : POLLIN), 0};
  }

  /// False at the end of the connection.
  bool move(size_t most) {
    if (bytes_.empty()) {
      bytes_.resize(most);
      const ssize_t size = ::recv(from_, bytes_.data(), most, 0);
      bytes_.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
      if (size <= 0) return size < 0 && errno == EAGAIN;
    }
    const ssize_t size = ::send(to_, bytes_.data(), bytes_.size(), MSG_NOSIGNAL);
    if (size < 0) return errno == EAGAIN;
    bytes_.erase(0, static_cast<size_t>(size));
    return true;
  }

 private:
  int from_;
  int to_;
  std::string bytes_;
};

struct Connection {
  Connection(Descriptor client, Descriptor server)
      : ends{std::move(client), std::move(server)},
        streams{{ends[0].get(), ends[1].get()}, {ends[1].get(), ends[0].get()}} {}

  Descriptor ends[2];
  Stream streams[2];
};

class Link {
 public:
  Link(Channel& parent, const std::string& path, const std::string& server)
      : parent_(parent), server_(addressOf(server)), listener_(makeSocket(SOCK_NONBLOCK)) {
    ::unlink(path.c_str());
    const sockaddr_un address = addressOf(path);
    require(::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            "bind");
    require(::listen(listener_.get(), SOMAXCONN), "listen");
  }

  [[noreturn]] void run() {
    for (;;) {
      std::vector<pollfd> fds = {{parent_.fd(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
      for (const Connection& connection : connections_) {
        for (const Stream& stream : connection.streams) fds.push_back(stream.wanted());
      }
      if (::poll(fds.data(), fds.size(), -1) < 0) require(errno == EINTR ? 0 : -1, "poll");
      move(fds);
      if (fds[1].revents != 0) accept();
      if (fds[0].revents != 0) isSlow_ = parent_.receive() == "slow";
      if (isSlow_) ::poll(nullptr, 0, kSlowMilliseconds);  // what a slow line takes
    }
  }

 private:
  void move(const std::vector<pollfd>& fds) {
    size_t next = 2;
    for (auto connection = connections_.begin(); connection != connections_.end();) {
      bool isOpen = true;
      for (Stream& stream : connection->streams) {
        if (fds[next++].revents != 0) isOpen &= stream.move(isSlow_ ? kSlowBytes : kFastBytes);
      }
      connection = isOpen ? std::next(connection) : connections_.erase(connection);
    }
  }

  // Without a server, or with one that accepts nothing more, the connection ends.
  void accept() {
    Descriptor client(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK));
    if (!client.isOpen()) return;
    Descriptor server = makeSocket(SOCK_NONBLOCK);
    if (::connect(server.get(), reinterpret_cast<const sockaddr*>(&server_), sizeof server_) != 0) {
      return;
    }
    connections_.emplace_back(std::move(client), std::move(server));
  }

  Channel& parent_;
  sockaddr_un server_;
  Descriptor listener_;
  std::list<Connection> connections_;
  bool isSlow_ = false;
};

}  // namespace

void runLink(Channel& parent, const std::string& path, const std::string& server) {
  Link link(parent, path, server);
  parent.send("ready");
  link.run();
}

}  // namespace Zorbe::Test::RelayChaos
