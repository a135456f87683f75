// SPDX-License-Identifier: MIT
//
// A daemon may have closed its standard input: then 0 is a descriptor as good as any.
#pragma once

#include "fault/fault.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

namespace Zorbe::Test {

/// Keeps what descriptor 0 was aside, and puts it back.
class DescriptorZero {
 public:
  DescriptorZero() : aside_(::fcntl(0, F_DUPFD_CLOEXEC, 100)) {}
  DescriptorZero(const DescriptorZero&) = delete;
  DescriptorZero& operator=(const DescriptorZero&) = delete;
  ~DescriptorZero() {
    const Fault::Bypass bypass;
    if (aside_ < 0) return;
    (void)::dup2(aside_, 0);
    (void)::close(aside_);
  }

  /// The next descriptor that is opened is 0.
  void free() const {
    const Fault::Bypass bypass;
    if (isOpen()) (void)::close(0);
  }

  /// The one that the next such call opens is 0.
  void freeBefore(const std::string& call) const {
    Fault::before(call, 1, [this] { free(); });
  }

  static bool isOpen() {
    const Fault::Bypass bypass;
    return ::fcntl(0, F_GETFD) != -1;
  }

 private:
  int aside_;
};

}  // namespace Zorbe::Test
