// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace Brask::Linux {

/// Throws std::system_error for `error`, with `what` in front of its text. `error` may be errno
/// itself only where `what` is a literal: what makes a string first may change errno.
[[noreturn]] inline void throwSystemError(int error, const char* what) {
  throw std::system_error(error, std::generic_category(), what);
}
[[noreturn]] inline void throwSystemError(int error, const std::string& what) {
  throwSystemError(error, what.c_str());
}

/// A descriptor of the loop, closed with its owner. Unlike the library's UniqueFd it takes the
/// result of a system call and throws on its failure; the platform includes nothing of the
/// library.
class OwnedFd {
 public:
  OwnedFd() = default;

  /// Takes the result of the system call `what`, made right before; throws
  /// std::system_error with its errno when it is negative.
  OwnedFd(int fd, const char* what) : fd_(fd) {
    const int error = errno;
    if (fd_ < 0) throwSystemError(error, what);
  }

  OwnedFd(OwnedFd&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  OwnedFd& operator=(OwnedFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }

  ~OwnedFd() {
    if (fd_ >= 0) static_cast<void>(::close(fd_));  // nothing was written that could be lost
  }

  int get() const { return fd_; }

 private:
  int fd_ = -1;
};

}  // namespace Brask::Linux
