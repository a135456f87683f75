// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Zorbe {

/// The one owner of a descriptor of the library or the table; closes it and keeps errno. Where the
/// descriptor passes to a control's owner, release() gives it up. The platform has an OwnedFd of
/// its own: neither includes anything of the other.
class UniqueFd {
 public:
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }

  ~UniqueFd() {
    if (fd_ < 0) return;
    const int error = errno;
    static_cast<void>(::close(fd_));  // no caller could act on a failure; never retried
    errno = error;
  }

  int get() const noexcept { return fd_; }
  [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

}  // namespace Zorbe
