// SPDX-License-Identifier: MIT
//
// What the tests of the bundled loop share: a loop per test, and descriptors to watch.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "fault/fault.h"
#include "support/fixture.h"
#include "support/loop.h"

namespace LoopTesting {

namespace Fault = Zorbe::Test::Fault;
using Clock = std::chrono::steady_clock;

// Long enough that only a hang meets it.
constexpr double kPatience = 20.0;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

using Zorbe::Test::FdProbe;
using Zorbe::Test::InotifyProbe;
using Zorbe::Test::TimerProbe;

/// Two connected descriptors: `here` is watched, `there` makes it ready.
class Pair : private Zorbe::Test::NonCopyable {
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
class Directory : private Zorbe::Test::NonCopyable {
 public:
  explicit Directory(const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
    std::string pattern = (base / "brask-loop-XXXXXX").string();
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

/// The text of the `Error` that comes out of `action`, "" when none does.
template <class Error>
std::string textOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

/// The text of the std::system_error that comes out of `action`, "" when none does.
inline std::string refusalOf(const std::function<void()>& action) {
  return textOf<std::system_error>(action);
}

/// A test with a loop.
class LoopTest : public Zorbe::Test::ZorbeTest {
 protected:
  LoopTest() { Fault::reset(); }  // the calls that have made the loop are not counted

  /// Turns until `reached`; false when that takes too long.
  bool turnUntil(const std::function<bool()>& reached) {
    return Zorbe::Test::turnUntil(*loop, reached);
  }

  /// Turns until there is nothing left to do.
  void settle() {
    while (loop->turn(0)) {
    }
  }

  std::unique_ptr<Brask::Linux::EventLoop> loop = std::make_unique<Brask::Linux::EventLoop>();
};

}  // namespace LoopTesting
