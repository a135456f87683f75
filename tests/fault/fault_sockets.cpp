// SPDX-License-Identifier: MIT
//
// Sockets and namespaces, defined ahead of the C library's.
#pragma GCC visibility push(default)

#include "fault/intercept.h"

#include <sched.h>
#include <sys/socket.h>

using Zorbe::Test::Fault::Call;
using Zorbe::Test::Fault::Intercept;
using Zorbe::Test::Fault::Target;
using Zorbe::Test::Fault::transfer;

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  return Intercept<int(int, int, int)>::run(Call::socketCall, {}, domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  return Intercept<int(int, const sockaddr*, socklen_t)>::run(Call::bindCall, {fd}, fd, address,
                                                              length);
}

int listen(int fd, int backlog) noexcept {
  return Intercept<int(int, int)>::run(Call::listenCall, {fd}, fd, backlog);
}

int accept(int fd, sockaddr* __restrict address, socklen_t* __restrict length) {
  return Intercept<int(int, sockaddr*, socklen_t*)>::run(Call::acceptCall, {fd}, fd, address,
                                                         length);
}

int accept4(int fd, sockaddr* __restrict address, socklen_t* __restrict length, int flags) {
  return Intercept<int(int, sockaddr*, socklen_t*, int)>::run(Call::accept4Call, {fd}, fd, address,
                                                              length, flags);
}

int connect(int fd, const sockaddr* address, socklen_t length) {
  return Intercept<int(int, const sockaddr*, socklen_t)>::run(Call::connectCall, {fd}, fd, address,
                                                              length);
}

int getsockname(int fd, sockaddr* __restrict address, socklen_t* __restrict length) noexcept {
  return Intercept<int(int, sockaddr*, socklen_t*)>::run(Call::getsocknameCall, {fd}, fd, address,
                                                         length);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t length) noexcept {
  return Intercept<int(int, int, int, const void*, socklen_t)>::run(Call::setsockoptCall, {fd}, fd,
                                                                    level, name, value, length);
}

int getsockopt(int fd, int level, int name, void* __restrict value,
               socklen_t* __restrict length) noexcept {
  return Intercept<int(int, int, int, void*, socklen_t*)>::run(Call::getsockoptCall, {fd}, fd,
                                                               level, name, value, length);
}

ssize_t send(int fd, const void* data, size_t size, int flags) {
  return transfer(Call::sendCall, {fd}, size, [=](size_t limited) {
    using Send = Intercept<ssize_t(int, const void*, size_t, int)>;
    return Send::next(Call::sendCall)(fd, data, limited, flags);
  });
}

ssize_t recv(int fd, void* data, size_t size, int flags) {
  return transfer(Call::recvCall, {fd}, size, [=](size_t limited) {
    using Recv = Intercept<ssize_t(int, void*, size_t, int)>;
    return Recv::next(Call::recvCall)(fd, data, limited, flags);
  });
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  return Intercept<ssize_t(int, const msghdr*, int)>::run(Call::sendmsgCall, {fd}, fd, message,
                                                          flags);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
  return Intercept<ssize_t(int, msghdr*, int)>::run(Call::recvmsgCall, {fd}, fd, message, flags);
}

int setns(int fd, int type) noexcept {
  return Intercept<int(int, int)>::run(Call::setnsCall, {fd}, fd, type);
}

}  // extern "C"
