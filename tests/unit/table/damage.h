// SPDX-License-Identifier: MIT
//
// What somebody may do to a table's files who may write them.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <string>

namespace Zorbe::Test {

/// In place, under every mapping. Returns what was there.
inline uint64_t overwriteWord(const std::string& path, uint64_t offset, uint64_t word) {
  uint64_t before = 0;
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_GE(fd, 0) << path;
  const auto at = static_cast<off_t>(offset);
  EXPECT_EQ(::pread(fd, &before, sizeof before, at), ssize_t{sizeof before});
  EXPECT_EQ(::pwrite(fd, &word, sizeof word, at), ssize_t{sizeof word});
  EXPECT_EQ(::close(fd), 0);
  return before;
}

}  // namespace Zorbe::Test
