// SPDX-License-Identifier: MIT
//
// What the tests of the bundled loop share: a loop per test, probes that own a
// handler with its control, and descriptors to watch.
#pragma once

#include <brask/linux/event_loop.h>
#include <brask/platform.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace LoopTesting {

using Clock = std::chrono::steady_clock;

// Long enough that only a hang meets it.
constexpr double kPatience = 20.0;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// A handler of descriptor events with its control.
struct FdProbe : Brask::Platform::FdEventHandler {
  explicit FdProbe(std::function<void(int)> action = {})
      : onEvent(std::move(action)), control(Brask::Platform::getFdControl(this)) {}
  void fdEvent(int fd) override {
    ++events;
    last = fd;
    // A copy: the action may delete this probe.
    if (const auto action = onEvent) action(fd);
  }

  int events = 0;
  int last = -1;
  std::function<void(int)> onEvent;
  std::unique_ptr<Brask::Platform::FdControl> control;
};

/// A handler of timeouts with its control.
struct TimerProbe : Brask::Platform::TimeoutHandler {
  explicit TimerProbe(std::function<void()> action = {})
      : onTimeout(std::move(action)), control(Brask::Platform::getTimerControl(this)) {}
  void timeout() override {
    ++timeouts;
    if (const auto action = onTimeout) action();
  }

  int timeouts = 0;
  std::function<void()> onTimeout;
  std::unique_ptr<Brask::Platform::TimerControl> control;
};

/// A handler of inotify events with its control. Keeps what was reported to it.
struct InotifyProbe : Brask::Platform::InotifyHandler {
  explicit InotifyProbe(std::function<void()> action = {})
      : onEvent(std::move(action)), control(Brask::Platform::getInotifyControl(this)) {}
  void inotifyError(const std::string& what) override { note("error " + what); }
  void inotifyDeleted() override { note("deleted"); }
  void inotifyChanged(const std::string& what) override { note("changed " + what); }
  void note(const std::string& text) {
    reports.push_back(text);
    if (const auto action = onEvent) action();
  }

  std::vector<std::string> reports;
  std::function<void()> onEvent;
  std::unique_ptr<Brask::Platform::InotifyControl> control;
};

/// Two connected descriptors: `here` is watched, `there` makes it ready.
class Pair {
 public:
  Pair() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
      throw std::runtime_error("socketpair");
    }
    here = ends[0];
    there = ends[1];
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;
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
class Directory {
 public:
  explicit Directory(const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
    std::string pattern = (base / "brask-loop-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
    path = pattern;
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
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

inline size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
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

/// A test with a loop. No test may leave a descriptor open.
class LoopTest : public ::testing::Test {
 protected:
  LoopTest() : descriptorsBefore_(openDescriptors()), loop(new Brask::Linux::EventLoop) {}
  ~LoopTest() override {
    loop.reset();
    EXPECT_EQ(descriptorsBefore_, openDescriptors());
  }

  /// Turns until `reached`; false when that takes too long.
  bool turnUntil(const std::function<bool()>& reached) {
    const auto start = Clock::now();
    while (!reached()) {
      if (secondsSince(start) > kPatience) return false;
      loop->turn(0.1);
    }
    return true;
  }

  /// Turns until there is nothing left to do.
  void settle() {
    while (loop->turn(0)) {
    }
  }

 private:
  size_t descriptorsBefore_;

 protected:
  std::unique_ptr<Brask::Linux::EventLoop> loop;
};

}  // namespace LoopTesting
