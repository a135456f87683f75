// SPDX-License-Identifier: MIT
#include "brask/linux/poller.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

namespace Brask::Linux {

namespace {

int createEpoll() {
  return ::epoll_create1(EPOLL_CLOEXEC);
}

epoll_event eventFor(uint32_t events, uint64_t data) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = data;
  return event;
}

}  // namespace

Poller::Poller() : fd_(createEpoll(), "EventLoop epoll_create1()") {}

int Poller::add(int fd, uint64_t data) {
  epoll_event event = eventFor(EPOLLIN, data);
  if (::epoll_ctl(fd_.get(), EPOLL_CTL_ADD, fd, &event) == 0) return 0;
  if (errno != EEXIST) return errno;
  // Another control watches it, or did when its number referred to the same file.
  return ::epoll_ctl(fd_.get(), EPOLL_CTL_MOD, fd, &event) == 0 ? 0 : errno;
}

void Poller::pause(int fd, uint64_t data) {
  modify(fd, 0, data);
}

void Poller::resume(int fd, uint64_t data) {
  modify(fd, EPOLLIN, data);
}

void Poller::modify(int fd, uint32_t events, uint64_t data) {
  epoll_event event = eventFor(events, data);
  // Fails only for a descriptor that was closed: there is nothing to report then.
  static_cast<void>(::epoll_ctl(fd_.get(), EPOLL_CTL_MOD, fd, &event));
}

void Poller::remove(int fd) {
  // Fails when the descriptor was closed, since the kernel has removed it.
  static_cast<void>(::epoll_ctl(fd_.get(), EPOLL_CTL_DEL, fd, nullptr));
}

[[gnu::hot]] void Poller::wait(int milliseconds) {
  next_ = count_ = 0;
  const int ready =
      ::epoll_wait(fd_.get(), batch_.data(), static_cast<int>(batch_.size()), milliseconds);
  if (ready < 0 && errno != EINTR) throwSystemError(errno, "EventLoop epoll_wait()");
  if (ready > 0) count_ = static_cast<size_t>(ready);
}

bool Poller::renew(const std::function<bool()>& addAll) {
  const int old = fd_.get();
  const int fresh = createEpoll();
  if (fresh < 0) return false;
  OwnedFd other = std::move(fd_);
  fd_ = OwnedFd(fresh);  // addAll() adds to it
  const bool renewed = addAll() && ::dup3(fresh, old, O_CLOEXEC) >= 0;
  std::swap(fd_, other);
  return renewed;
}

}  // namespace Brask::Linux
