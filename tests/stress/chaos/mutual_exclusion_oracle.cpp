// SPDX-License-Identifier: MIT
#include "stress/chaos/mutual_exclusion_oracle.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Zorbe::Test::Chaos {
namespace {

[[noreturn]] void fail(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

struct flock wholeFile(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

}  // namespace

MutualExclusionOracle::MutualExclusionOracle(const std::string& path)
    : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
  if (fd_ < 0) fail("open");
}

MutualExclusionOracle::~MutualExclusionOracle() {
  EXPECT_EQ(0, ::close(fd_));
}

pid_t MutualExclusionOracle::take() {
  struct flock lock = wholeFile(F_WRLCK);
  while (::fcntl(fd_, F_SETLK, &lock) != 0) {
    if (errno != EAGAIN && errno != EACCES) fail("fcntl");
    struct flock held = wholeFile(F_WRLCK);
    if (::fcntl(fd_, F_GETLK, &held) != 0) fail("fcntl");
    if (held.l_type != F_UNLCK) return held.l_pid;
  }
  return 0;
}

void MutualExclusionOracle::release() {
  struct flock lock = wholeFile(F_UNLCK);
  if (::fcntl(fd_, F_SETLK, &lock) != 0) fail("fcntl");
}

}  // namespace Zorbe::Test::Chaos
