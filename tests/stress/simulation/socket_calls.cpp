// SPDX-License-Identifier: MIT
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "fault/fault.h"
#include "stress/simulation/system_calls.h"
#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {
namespace {

int openSocket(int /*domain*/, int type, int /*protocol*/) {
  Process& process = *Process::running();
  if (!enter(process)) return -1;
  auto socket = std::make_shared<Kernel::Socket>();
  socket->nonBlocking = (type & SOCK_NONBLOCK) != 0;
  return process.open(std::move(socket));
}

// A process has real descriptors, too: of the files that it reads and writes.
int closeDescriptor(int fd) {
  Process* const process = Process::running();
  if (fd < Process::kFirstDescriptor) {
    const Fault::Bypass bypass;
    return ::close(fd);
  }
  if (!enter(*process)) return -1;
  if (!process->owns(fd)) {
    process->world().fail(process->name() + " closes what is not open");
    return result(EBADF);
  }
  process->closeDescriptor(fd);
  return 0;
}

// Calls `call(process, socket)` for an errno.
template <class Call>
int onSocket(int fd, Call call) {
  Process& process = *Process::running();
  if (!enter(process)) return -1;
  const Kernel::SocketRef socket = process.socket(fd);
  return result(socket ? call(process, socket) : EBADF);
}

std::string abstractName(const sockaddr* address, socklen_t length) {
  const std::size_t offset = offsetof(sockaddr_un, sun_path) + 1;
  return {reinterpret_cast<const char*>(address) + offset, length - offset};
}

int bindSocket(int fd, const sockaddr* address, socklen_t length) {
  return onSocket(fd, [=](Process& process, const Kernel::SocketRef& socket) {
    return process.world().sockets.bind(socket, abstractName(address, length));
  });
}

int listenOn(int fd, int backlog) {
  return onSocket(fd, [=](Process& process, const Kernel::SocketRef& socket) {
    return process.world().sockets.listen(*socket, backlog);
  });
}

int connectBlocking(Process& process, const Kernel::SocketRef& socket, const std::string& name) {
  Kernel::Sockets& sockets = process.world().sockets;
  for (;;) {
    const int error = sockets.connect(socket, name);
    if (error != EAGAIN || socket->nonBlocking) return error;
    process.waitUntil([&sockets, name] { return sockets.decided(name); });
    if (process.isDead()) return EINTR;
  }
}

int connectTo(int fd, const sockaddr* address, socklen_t length) {
  return onSocket(fd, [=](Process& process, const Kernel::SocketRef& socket) {
    return connectBlocking(process, socket, abstractName(address, length));
  });
}

int acceptFrom(int fd, sockaddr* /*address*/, socklen_t* /*length*/) {
  int accepted = -1;
  const int rc = onSocket(fd, [&](Process& process, const Kernel::SocketRef& socket) {
    Kernel::SocketRef other;
    const int error = process.world().sockets.accept(*socket, other);
    if (error == 0) accepted = process.open(other);
    return error;
  });
  return rc < 0 ? -1 : accepted;
}

int acceptWith(int fd, sockaddr* address, socklen_t* length, int /*flags*/) {
  return acceptFrom(fd, address, length);
}

int shutDown(int fd, int /*how*/) {
  return onSocket(fd, [](Process& process, const Kernel::SocketRef& socket) {
    process.world().sockets.shutdown(*socket);
    return 0;
  });
}

// SO_PEERCRED.
int getOption(int fd, int /*level*/, int /*name*/, void* value, socklen_t* length) {
  return onSocket(fd, [=](Process&, const Kernel::SocketRef& socket) {
    const Kernel::SocketRef peer = socket->peer.lock();
    if (!peer) return ENOTCONN;
    const ucred who{peer->owner, 0, 0};
    std::memcpy(value, &who, std::min<size_t>(*length, sizeof who));
    return 0;
  });
}

// Of one connection: whether it has ended, and whether a packet can be sent.
int pollSocket(pollfd* entry, nfds_t /*count*/, int /*timeout*/) {
  const int rc = onSocket(entry->fd, [=](Process& process, const Kernel::SocketRef& socket) {
    const bool writable = process.world().sockets.writable(*socket);
    entry->revents = writable ? static_cast<short>(entry->events & POLLOUT) : short{0};
    if (socket->peerClosed) entry->revents = static_cast<short>(entry->revents | POLLHUP);
    return 0;
  });
  return rc < 0 || entry->revents == 0 ? rc : 1;
}

int setOption(int fd, int /*level*/, int /*name*/, const void* /*value*/, socklen_t /*length*/) {
  return onSocket(fd, [](Process&, const Kernel::SocketRef&) { return 0; });
}

ssize_t sendPacket(int fd, const void* data, size_t size, int /*flags*/) {
  const int rc = onSocket(fd, [&](Process& process, const Kernel::SocketRef& socket) {
    return process.world().sockets.send(*socket, {static_cast<const char*>(data), size});
  });
  return rc < 0 ? -1 : static_cast<ssize_t>(size);
}

ssize_t receivePacket(int fd, void* data, size_t size, int /*flags*/) {
  ssize_t received = 0;
  const int rc = onSocket(fd, [&](Process& process, const Kernel::SocketRef& socket) {
    std::string packet;
    const int error = process.world().sockets.receive(*socket, size, packet);
    std::memcpy(data, packet.data(), packet.size());
    received = static_cast<ssize_t>(packet.size());
    return error;
  });
  return rc < 0 ? -1 : received;
}

}  // namespace

void divertSocketCalls() {
  Fault::divert("accept", acceptFrom, "accept4", acceptWith, "bind", bindSocket, "close",
                closeDescriptor, "connect", connectTo, "getsockopt", getOption, "listen", listenOn,
                "poll", pollSocket, "recv", receivePacket, "send", sendPacket, "setsockopt",
                setOption, "shutdown", shutDown, "socket", openSocket);
}

}  // namespace Zorbe::Test::Simulation
