// SPDX-License-Identifier: MIT
#include "brask/linux/stop_signal.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <cstdint>

namespace Brask::Linux {

StopSignal::StopSignal() : fd_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "EventLoop eventfd()") {}

void StopSignal::raise() noexcept {
  raised_.store(true, std::memory_order_release);
  call();
}

void StopSignal::call() noexcept {
  const int saved = errno;
  const uint64_t one = 1;
  const ssize_t written = ::write(fd_.get(), &one, sizeof one);
  static_cast<void>(written);  // fails only when it is readable already, 2^64 - 2 calls later
  errno = saved;
}

void StopSignal::quiet() {
  uint64_t raises = 0;
  if (::read(fd_.get(), &raises, sizeof raises) >= 0) return;
  // Still readable when a signal came first: then the next turn reads it.
  if (errno != EAGAIN && errno != EINTR) throwSystemError(errno, "EventLoop read(eventfd)");
}

void StopSignal::lower() {
  raised_.store(false, std::memory_order_release);
  quiet();
}

}  // namespace Brask::Linux
