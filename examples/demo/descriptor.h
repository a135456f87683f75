// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include <unistd.h>

namespace Demo {

/// Owns a descriptor, -1 for none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() {
    if (fd_ >= 0) static_cast<void>(::close(fd_));  // nothing was buffered that could be lost
  }

  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace Demo
