// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>

namespace Zorbe::Test {

/// A descriptor of the test's own. Its close(2) is not counted and cannot be made to fail.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { close(); }

  int get() const { return fd_; }
  bool isOpen() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }

  void close() {
    if (!isOpen()) return;
    const Fault::Bypass bypass;
    EXPECT_EQ(::close(release()), 0);
  }

 private:
  int fd_;
};

}  // namespace Zorbe::Test
