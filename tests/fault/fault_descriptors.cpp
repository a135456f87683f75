// SPDX-License-Identifier: MIT
//
// The calls on descriptors and those of event loops, defined ahead of the C library's.
#pragma GCC visibility push(default)

#include "fault/intercept.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <ctime>

using namespace Zorbe::Test::Fault;

extern "C" {

int close(int fd) {
  return intercept<int>(WhenFailing::kMakeAnyway, Call::closeCall, {fd}, fd);
}

pid_t getpid() noexcept {
  return intercept<pid_t>(Call::getpidCall, {});
}

// Reading the clock is no system call: not counted and never made to fail, but it can be diverted.
int clock_gettime(clockid_t clock, timespec* now) noexcept {
  return nextFunction<int(clockid_t, timespec*)>(Call::clock_gettimeCall)(clock, now);
}

int dup(int fd) noexcept {
  return intercept<int>(Call::dupCall, {fd}, fd);
}

int dup2(int from, int to) noexcept {
  return intercept<int>(Call::dup2Call, {from}, from, to);
}

int dup3(int from, int to, int flags) noexcept {
  return intercept<int>(Call::dup3Call, {from}, from, to, flags);
}

ssize_t read(int fd, void* data, size_t size) {
  return transfer(Call::readCall, {fd}, size, [=](size_t limited) {
    return nextFunction<ssize_t(int, void*, size_t)>(Call::readCall)(fd, data, limited);
  });
}

ssize_t write(int fd, const void* data, size_t size) {
  return transfer(Call::writeCall, {fd}, size, [=](size_t limited) {
    return nextFunction<ssize_t(int, const void*, size_t)>(Call::writeCall)(fd, data, limited);
  });
}

ssize_t writev(int fd, const iovec* parts, int count) {
  return intercept<ssize_t>(Call::writevCall, {fd}, fd, parts, count);
}

// A third argument of any type is passed as one word.
int fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return intercept<int>(Call::fcntlCall, {fd}, fd, command, argument);
}

#ifndef _FILE_OFFSET_BITS
int fcntl64(int fd, int command, ...) __attribute__((alias("fcntl")));
#endif

int poll(pollfd* entries, nfds_t count, int timeout) {
  return intercept<int>(Call::pollCall, {}, entries, count, timeout);
}

int ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask) {
  return intercept<int>(Call::ppollCall, {}, entries, count, timeout, mask);
}

int epoll_create1(int flags) noexcept {
  return intercept<int>(Call::epoll_create1Call, {}, flags);
}

int epoll_ctl(int epollFd, int operation, int fd, epoll_event* event) noexcept {
  return intercept<int>(Call::epoll_ctlCall, {fd}, epollFd, operation, fd, event);
}

int epoll_wait(int fd, epoll_event* events, int capacity, int timeout) {
  return intercept<int>(Call::epoll_waitCall, {fd}, fd, events, capacity, timeout);
}

int timerfd_create(clockid_t clock, int flags) noexcept {
  return intercept<int>(Call::timerfd_createCall, {}, clock, flags);
}

int timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* old) noexcept {
  return intercept<int>(Call::timerfd_settimeCall, {fd}, fd, flags, value, old);
}

int eventfd(unsigned count, int flags) noexcept {
  return intercept<int>(Call::eventfdCall, {}, count, flags);
}

int inotify_init1(int flags) noexcept {
  return intercept<int>(Call::inotify_init1Call, {}, flags);
}

int inotify_add_watch(int fd, const char* path, uint32_t mask) noexcept {
  return intercept<int>(Call::inotify_add_watchCall, {fd, path}, fd, path, mask);
}

int inotify_rm_watch(int fd, int watch) noexcept {
  return intercept<int>(Call::inotify_rm_watchCall, {fd}, fd, watch);
}

}  // extern "C"
