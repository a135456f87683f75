// SPDX-License-Identifier: MIT
//
// Processes of a test: a function run in a child, and a channel to talk to it.
//
//     ChildProcess writer("writer", [&](Channel& parent) {
//       ...
//       parent.tell("locked");
//       parent.await("go on");
//     });
//     writer.await("locked");
//     writer.kill();
//
// The child is forked, so a test starts its children before it has a loop, a writer lock or
// a thread of its own.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

namespace Zorbe::Test {

/// How long anything may take before the test gives up.
inline constexpr std::chrono::seconds patience{30};

/// One end of the connection between a test and its child: messages of a line each.
class Channel {
 public:
  /// Owns `fd`.
  Channel(int fd, std::string peer);
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  void tell(const std::string& words);

  /// The next message. Throws std::runtime_error when none comes in time, or the other end
  /// has gone.
  std::string hear();

  /// Hears messages until `words` come; those before are dropped.
  void await(const std::string& words);

  /// Hears messages until one begins with `start`, and returns what follows it.
  std::string awaitBehind(const std::string& start);

  /// Hears whatever comes until the other end has gone.
  void awaitEnd();

  /// Drops whatever has come so far, without waiting. False when the other end has gone.
  bool drain();

  /// Readable when there is something to hear.
  int fd() const { return fd_; }

 private:
  bool receive(std::string& words);

  int fd_;
  std::string peer_;
};

class ChildProcess {
 public:
  using Role = std::function<void(Channel& parent)>;

  /// Runs `role` in a child of its own, whose standard output and error become its log. An
  /// exception or a failed expectation makes the child exit with 1.
  ChildProcess(std::string name, const Role& role);

  /// Kills the child, if it is still there, and shows its log if the test has failed.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void tell(const std::string& words) { channel_.tell(words); }
  std::string hear() { return channel_.hear(); }
  void await(const std::string& words) { channel_.await(words); }
  std::string awaitBehind(const std::string& start) { return channel_.awaitBehind(start); }

  pid_t pid() const { return pid_; }
  Channel& channel() { return channel_; }

  /// Ends the child by SIGKILL. Afterwards all that the kernel kept for it is gone.
  void kill();

  /// Waits for the child's own end and returns its exit status, or minus the signal.
  int finish();

  /// What the child has written so far.
  std::string log() const;

 private:
  struct Ends;
  ChildProcess(std::string name, const Role& role, Ends ends);
  int play(const Role& role, int fd) const;
  int reap();

  std::string name_;
  int log_;
  Channel channel_;
  pid_t pid_ = -1;
};

}  // namespace Zorbe::Test
