// SPDX-License-Identifier: MIT
//
// Sockets and namespaces, defined ahead of the C library's.
#pragma GCC visibility push(default)

#include "fault/intercept.h"

#include <sched.h>
#include <sys/socket.h>

using namespace Zorbe::Test::Fault;

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  return intercept<int>(Call::socketCall, {}, domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  return intercept<int>(Call::bindCall, {fd}, fd, address, length);
}

int listen(int fd, int backlog) noexcept {
  return intercept<int>(Call::listenCall, {fd}, fd, backlog);
}

int accept(int fd, sockaddr* __restrict address, socklen_t* __restrict length) {
  return intercept<int>(Call::acceptCall, {fd}, fd, address, length);
}

int accept4(int fd, sockaddr* __restrict address, socklen_t* __restrict length, int flags) {
  return intercept<int>(Call::accept4Call, {fd}, fd, address, length, flags);
}

int connect(int fd, const sockaddr* address, socklen_t length) {
  return intercept<int>(Call::connectCall, {fd}, fd, address, length);
}

int getsockname(int fd, sockaddr* __restrict address, socklen_t* __restrict length) noexcept {
  return intercept<int>(Call::getsocknameCall, {fd}, fd, address, length);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t length) noexcept {
  return intercept<int>(Call::setsockoptCall, {fd}, fd, level, name, value, length);
}

int getsockopt(int fd, int level, int name, void* __restrict value,
               socklen_t* __restrict length) noexcept {
  return intercept<int>(Call::getsockoptCall, {fd}, fd, level, name, value, length);
}

int shutdown(int fd, int how) noexcept {
  return intercept<int>(Call::shutdownCall, {fd}, fd, how);
}

ssize_t send(int fd, const void* data, size_t size, int flags) {
  return transfer(Call::sendCall, {fd}, size, [=](size_t limited) {
    using Send = ssize_t(int, const void*, size_t, int);
    return nextFunction<Send>(Call::sendCall)(fd, data, limited, flags);
  });
}

ssize_t recv(int fd, void* data, size_t size, int flags) {
  return transfer(Call::recvCall, {fd}, size, [=](size_t limited) {
    using Recv = ssize_t(int, void*, size_t, int);
    return nextFunction<Recv>(Call::recvCall)(fd, data, limited, flags);
  });
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  return intercept<ssize_t>(Call::sendmsgCall, {fd}, fd, message, flags);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
  return intercept<ssize_t>(Call::recvmsgCall, {fd}, fd, message, flags);
}

int setns(int fd, int type) noexcept {
  return intercept<int>(Call::setnsCall, {fd}, fd, type);
}

}  // extern "C"
