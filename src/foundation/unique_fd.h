// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Zorbe {

/// The one owner of a descriptor on its way to a longer-lived one; closes it otherwise,
/// leaving `errno` as it was.
class UniqueFd {
 public:
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&&) = delete;

  ~UniqueFd() {
    if (fd_ < 0) return;
    const int error = errno;
    static_cast<void>(
        ::close(fd_));  // already failing: there is nobody to tell, and close is never retried
    errno = error;
  }

  int get() const noexcept { return fd_; }
  [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

}  // namespace Zorbe
