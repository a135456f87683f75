// SPDX-License-Identifier: MIT
//
// For tests of any platform: what its controls watch. Installed with the conformance suite.
#pragma once

#include "support/noncopyable.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace Zorbe::Test {

/// Two connected descriptors: `here` is watched, `there` makes it ready.
class Pair : private NonCopyable {
 public:
  Pair() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
      throw std::runtime_error("socketpair");
    }
    here = ends[0];
    there = ends[1];
  }
  ~Pair() {
    closeHere();
    closeThere();
  }

  void makeReady() { EXPECT_EQ(1, ::send(there, "x", 1, MSG_NOSIGNAL)); }
  void drain() {
    char byte;
    EXPECT_EQ(1, ::recv(here, &byte, 1, 0));
  }
  void closeHere() { shut(here); }
  void closeThere() { shut(there); }

  int here = -1;
  int there = -1;

 private:
  static void shut(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
  }
};

/// A directory of the test's own, removed with everything in it.
class Directory : private NonCopyable {
 public:
  explicit Directory(const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
    std::string pattern = (base / "zorbe-loop-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
    path = pattern;
  }
  ~Directory() { std::filesystem::remove_all(path); }

  std::string make(const std::string& name) const {
    const std::string made = path + "/" + name;
    std::filesystem::create_directory(made);
    return made;
  }

  std::string path;
};

inline void touch(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0) << path;
  ::close(fd);
}

inline bool readable(int fd, int milliseconds = 0) {
  pollfd state{fd, POLLIN, 0};
  return ::poll(&state, 1, milliseconds) == 1 && (state.revents & POLLIN) != 0;
}

}  // namespace Zorbe::Test
