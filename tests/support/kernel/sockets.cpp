// SPDX-License-Identifier: MIT
#include "support/kernel/sockets.h"

#include <cerrno>
#include <utility>

namespace Zorbe::Test::Kernel {

int Sockets::bind(const SocketRef& socket, const std::string& name) {
  if (socket->state != Socket::State::kFresh) return EINVAL;
  if (holder(name)) {
    covered_.insert("name in use");
    return EADDRINUSE;
  }
  names_[name] = socket;
  socket->name = name;
  socket->state = Socket::State::kBound;
  return 0;
}

int Sockets::listen(Socket& socket, int backlog) {
  if (socket.state != Socket::State::kBound && socket.state != Socket::State::kListening)
    return EINVAL;
  socket.state = Socket::State::kListening;
  socket.backlog = static_cast<std::size_t>(backlog);
  return 0;
}

int Sockets::connect(const SocketRef& socket, const std::string& name) {
  const SocketRef listener = holder(name);
  if (!listener) {
    covered_.insert("no writer");
    return ECONNREFUSED;
  }
  if (listener->state != Socket::State::kListening) {
    covered_.insert("writer does not listen yet");
    return ECONNREFUSED;
  }
  if (isFull(*listener)) {
    covered_.insert("backlog full");
    return EAGAIN;
  }
  if (socket->state == Socket::State::kConnected) return EISCONN;
  if (socket->state != Socket::State::kFresh) return EINVAL;
  auto other = std::make_shared<Socket>();
  other->owner = listener->owner;
  other->state = socket->state = Socket::State::kConnected;
  other->peer = socket;
  socket->peer = other;
  listener->pending.push_back(std::move(other));
  return 0;
}

int Sockets::accept(Socket& listener, SocketRef& accepted) {
  if (listener.state != Socket::State::kListening) return EINVAL;
  if (listener.pending.empty()) return EAGAIN;
  accepted = std::move(listener.pending.front());
  listener.pending.pop_front();
  return 0;
}

int Sockets::send(Socket& socket, const std::string& packet) {
  if (const int error = std::exchange(socket.error, 0)) return error;
  if (socket.state != Socket::State::kConnected) return ENOTCONN;
  const SocketRef peer = socket.peer.lock();
  if (socket.peerClosed || !peer) return EPIPE;
  if (peer->packets.size() >= queueLimit_) {
    covered_.insert(packet.size() == 1 ? "kick lost" : "report lost");
    return EAGAIN;
  }
  peer->packets.push_back(packet);
  return 0;
}

int Sockets::receive(Socket& socket, std::size_t capacity, std::string& packet) {
  packet.clear();
  if (socket.state != Socket::State::kConnected) return ENOTCONN;
  if (const int error = std::exchange(socket.error, 0)) return error;
  if (!socket.packets.empty()) {
    packet = socket.packets.front().substr(0, capacity);
    socket.packets.pop_front();
    return 0;
  }
  return socket.peerClosed ? 0 : EAGAIN;
}

void Sockets::hangUp(Socket& socket, bool dataLost) {
  const SocketRef peer = socket.peer.lock();
  if (!peer) return;
  peer->peerClosed = true;
  if (!dataLost) return;
  peer->error = ECONNRESET;
  covered_.insert(socket.state == Socket::State::kConnected && socket.packets.empty()
                      ? "connection ended before it was accepted"
                      : "connection reset");
}

void Sockets::shutdown(Socket& socket) {
  socket.peerClosed = true;
  hangUp(socket, false);
}

void Sockets::close(const SocketRef& socket) {
  socket->closed = true;
  if (!socket->name.empty()) names_.erase(socket->name);
  hangUp(*socket, !socket->packets.empty());
  for (const SocketRef& waiting : socket->pending) hangUp(*waiting, true);
  socket->pending.clear();
}

bool Sockets::readable(const Socket& socket) const {
  if (socket.closed) return false;
  return !socket.packets.empty() || !socket.pending.empty() || socket.peerClosed ||
         socket.error != 0;
}

bool Sockets::writable(const Socket& socket) const {
  const SocketRef peer = socket.peer.lock();
  return !peer || peer->packets.size() < queueLimit_;
}

bool Sockets::decided(const std::string& name) const {
  const SocketRef listener = holder(name);
  return !listener || listener->state != Socket::State::kListening || !isFull(*listener);
}

SocketRef Sockets::holder(const std::string& name) const {
  const auto found = names_.find(name);
  return found == names_.end() ? nullptr : found->second.lock();
}

}  // namespace Zorbe::Test::Kernel
