// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

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
  Fault::divert("accept", acceptFrom, "bind", bindSocket, "close", closeDescriptor, "connect",
                connectTo, "listen", listenOn, "recv", receivePacket, "send", sendPacket,
                "setsockopt", setOption, "socket", openSocket);
}

}  // namespace Zorbe::Test::Simulation
