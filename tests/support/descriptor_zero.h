// SPDX-License-Identifier: MIT
//
// A daemon may have closed its standard input: then 0 is a descriptor like any other.
#pragma once

#include "fault/fault.h"
#include "support/noncopyable.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

namespace Zorbe::Test {

/// Saves descriptor 0, and restores it.
class DescriptorZero : private NonCopyable {
 public:
  DescriptorZero() : aside_(::fcntl(0, F_DUPFD_CLOEXEC, 100)) {}
  ~DescriptorZero() {
    const Fault::Bypass bypass;
    if (aside_ < 0) return;
    static_cast<void>(::dup2(aside_, 0));
    static_cast<void>(::close(aside_));
  }

  /// The next descriptor that is opened is 0.
  void free() const {
    const Fault::Bypass bypass;
    if (isOpen()) static_cast<void>(::close(0));
  }

  /// The next such call opens 0.
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
