// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace Brask::Linux {

/// Throws std::system_error for `error`, with `what` in front of its text. `error` may be errno
/// itself only where `what` is a literal: what makes a string first may change errno.
[[noreturn]] inline void throwSystemError(int error, const char* what) {
  throw std::system_error(error, std::generic_category(), what);
}
[[noreturn]] inline void throwSystemError(int error, const std::string& what) {
  throwSystemError(error, what.c_str());
}

/// The one owner of a descriptor of the platform; closes it and keeps errno. The library has one of
/// its own (UniqueFd), since neither includes anything of the other; that one can give up its
/// descriptor, and this one can take the result of a system call and throw on its failure.
class OwnedFd {
 public:
  explicit OwnedFd(int fd = -1) noexcept : fd_(fd) {}

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
    if (fd_ < 0) return;
    const int error = errno;
    static_cast<void>(::close(fd_));  // nothing was written that could be lost
    errno = error;
  }

  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace Brask::Linux
