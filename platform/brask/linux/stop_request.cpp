// SPDX-License-Identifier: MIT
#include "brask/linux/stop_request.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <cstdint>

namespace Brask::Linux {

StopRequest::StopRequest() : fd_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "EventLoop eventfd()") {}

void StopRequest::set() noexcept {
  set_.store(true, std::memory_order_release);
  wake();
}

void StopRequest::wake() noexcept {
  const int saved = errno;
  const uint64_t one = 1;
  const ssize_t written = ::write(fd_.get(), &one, sizeof one);
  static_cast<void>(written);  // fails only when it is readable already, 2^64 - 2 calls later
  errno = saved;
}

void StopRequest::drain() {
  uint64_t wakes = 0;
  if (::read(fd_.get(), &wakes, sizeof wakes) >= 0) return;
  // Interrupted by a signal the descriptor stays readable, and the next turn reads it.
  if (errno != EAGAIN && errno != EINTR) throwSystemError(errno, "EventLoop read(eventfd)");
}

void StopRequest::clear() {
  set_.store(false, std::memory_order_release);
  drain();
}

}  // namespace Brask::Linux
