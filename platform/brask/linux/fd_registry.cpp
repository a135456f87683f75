// SPDX-License-Identifier: MIT
#include "brask/linux/fd_registry.h"

#include <brask/platform.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace Brask::Linux {

namespace {

// A listening descriptor that stays ready for this many turns is either busy, or accept(2)
// fails on it. Only then does the loop spend a system call to find out.
constexpr uint32_t kSuspiciousStreak = 16;

uint64_t dataOf(Handle handle) {
  return (uint64_t{handle.generation} << 32) | handle.slot;
}

Handle handleOf(uint64_t data) {
  return {static_cast<uint32_t>(data), static_cast<uint32_t>(data >> 32)};
}

[[noreturn]] void refuse(int error, const char* call, int fd) {
  throwSystemError(error,
                   "FdControl::watch() " + std::string(call) + " descriptor " + std::to_string(fd));
}

void addFlag(int fd, int get, int set, int flag, const char* call) {
  const int flags = ::fcntl(fd, get);
  if (flags < 0) refuse(errno, call, fd);
  if ((flags & flag) == 0 && ::fcntl(fd, set, flags | flag) < 0) refuse(errno, call, fd);
}

bool isListening(int fd) {
  int listening = 0;
  socklen_t size = sizeof listening;
  // Fails for a descriptor that is no socket.
  return ::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening != 0;
}

// Whether the process, or the system, has no descriptor left for accept().
bool descriptorsExhausted() {
  const int probe = ::eventfd(0, EFD_CLOEXEC);
  if (probe < 0) return true;
  static_cast<void>(::close(probe));
  return false;
}

// Whether the kernel refuses a watched descriptor because of what its number refers to now:
// it was closed without unwatch(), and the kernel has dropped its registration.
bool isUnwatchable(int error) {
  return error == EBADF || error == EPERM || error == EINVAL || error == ELOOP;
}

bool stillReady(int fd) {
  pollfd state{fd, POLLIN, 0};
  return ::poll(&state, 1, 0) > 0 && (state.revents & POLLNVAL) == 0;
}

}  // namespace

void FdRegistry::watch(FdWatcher& watcher, int fd) {
  unwatch(watcher);
  addFlag(fd, F_GETFL, F_SETFL, O_NONBLOCK, "fcntl(O_NONBLOCK)");
  addFlag(fd, F_GETFD, F_SETFD, FD_CLOEXEC, "fcntl(FD_CLOEXEC)");
  const auto number = static_cast<size_t>(fd);
  if (number >= byFd_.size()) byFd_.resize(number + 1);

  Registration registration;
  registration.handler = watcher.handler;
  registration.watcher = &watcher;
  registration.fd = fd;
  registration.listening = isListening(fd);
  const Handle handle = registrations_.insert(registration);
  if (const int error = poller_.add(fd, dataOf(handle)); error != 0) {
    registrations_.erase(handle);
    refuse(error, "epoll_ctl()", fd);
  }
  end(byFd_[number]);  // of the control that watched this number before
  byFd_[number] = handle;
  watcher.registration = handle;
  watcher.fd = fd;
}

void FdRegistry::unwatch(FdWatcher& watcher) {
  const Registration* registration = registrations_.find(watcher.registration);
  if (registration == nullptr) return;
  poller_.remove(registration->fd);
  end(watcher.registration);
  resumePaused();  // the client closes most of those that it stops to watch
}

void FdRegistry::end(Handle handle) {
  const Registration* registration = registrations_.find(handle);
  if (registration == nullptr) return;
  if (registration->paused) --paused_;
  registration->watcher->registration = Handle();
  registration->watcher->fd = -1;
  registrations_.erase(handle);
  ++ended_;
}

[[gnu::hot]] bool FdRegistry::dispatch(uint64_t data, uint64_t turn, bool late) {
  Registration* registration = registrations_.find(handleOf(data));
  if (registration == nullptr) {
    ++staleReports_;
    return false;
  }
  if (registration->listening && shouldPause(*registration, turn)) {
    registration->paused = true;
    ++paused_;
    poller_.pause(registration->fd, data);
    return false;
  }
  if (late && !stillReady(registration->fd)) return false;
  registration->handler->fdEvent(registration->fd);
  return true;
}

bool FdRegistry::shouldPause(Registration& registration, uint64_t turn) {
  if (registration.paused) return false;  // an error of the descriptor itself
  registration.streak = turn == registration.lastTurn + 1 ? registration.streak + 1 : 0;
  registration.lastTurn = turn;
  if (registration.streak < kSuspiciousStreak) return false;
  registration.streak = 0;
  return descriptorsExhausted();
}

void FdRegistry::retryPaused() {
  if (hasPaused() && !descriptorsExhausted()) resumePaused();
}

void FdRegistry::resumePaused() {
  if (!hasPaused()) return;
  registrations_.forEach([this](Handle handle, Registration& registration) {
    if (!registration.paused) return;
    registration.paused = false;
    poller_.resume(registration.fd, dataOf(handle));
  });
  paused_ = 0;
}

bool FdRegistry::registerAll() {
  bool complete = true;
  registrations_.forEach([&](Handle handle, Registration& registration) {
    const int error = poller_.add(registration.fd, dataOf(handle));
    if (error != 0 && !isUnwatchable(error)) complete = false;
    if (registration.paused) poller_.pause(registration.fd, dataOf(handle));
  });
  return complete;
}

}  // namespace Brask::Linux
