// SPDX-License-Identifier: MIT
//
// Limits of the system, lowered for a test.
#pragma once

#include "support/noncopyable.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <string>

namespace Zorbe::Test {

/// While it lives, until `allow`, the process cannot open another descriptor.
class NoDescriptors : private NonCopyable {
 public:
  NoDescriptors() {
    EXPECT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &before_));
    const int lowest = ::epoll_create1(EPOLL_CLOEXEC);
    ::close(lowest);
    rlimit none = before_;
    none.rlim_cur = static_cast<rlim_t>(lowest);
    EXPECT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &none));
  }
  ~NoDescriptors() { allow(); }

  void allow() { EXPECT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &before_)); }

 private:
  rlimit before_{};
};

/// The processor time that the process has used so far.
inline double processorSeconds() {
  return static_cast<double>(std::clock()) / static_cast<double>(CLOCKS_PER_SEC);
}

/// False when the setting, a file of /proc/sys, cannot be written.
inline bool writeSetting(const std::string& path, const std::string& value) {
  std::ofstream setting(path);
  setting << value << std::flush;
  return setting.good();
}

}  // namespace Zorbe::Test
