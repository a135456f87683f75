// SPDX-License-Identifier: MIT
//
// The processes of a test: a function that runs in a child, or a program.
//
//     ChildProcess writer("writer", [&](Channel& parent) {
//       ...
//       parent.send("locked");
//       parent.await("continue");
//     });
//     writer.await("locked");
//     writer.kill();
//
//     ChildProcess reader({path, "quotes", "--events"});
//     reader.awaitLine("event mapped");
//
// A function's child is forked: a test starts its children before it has a loop, a writer lock
// or a thread of its own.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "support/channel.h"

namespace Zorbe::Test {

/// What a child does about the user who runs the test.
enum class User {
  kSame,
  kOrdinary,  ///< becomes "nobody" when root runs the test
};

class ChildProcess {
 public:
  using Role = std::function<void(Channel& parent)>;

  /// Runs `role` in a child, whose standard output and error become its log. An exception or
  /// a failed expectation makes the child exit with 1. It has no descriptors of the test but
  /// those of `kept`.
  ChildProcess(std::string name, const Role& role, User user = User::kSame,
               const std::vector<int>& kept = {});

  /// Runs a program, whose path comes first. Its standard input is the file `input`, its
  /// standard output is the channel, and its standard error becomes its log.
  explicit ChildProcess(const std::vector<std::string>& arguments,
                        const std::string& input = "/dev/null");

  /// Kills the child, if it still runs, and prints its log if the test has failed.
  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;

  void send(const std::string& message) { channel_.send(message); }
  std::string receive() { return channel_.receive(); }
  void await(const std::string& message) { channel_.await(message); }
  std::string awaitLine(const std::string& prefix) { return channel_.awaitLine(prefix); }
  Channel& channel() { return channel_; }

  pid_t pid() const { return pid_; }
  void signal(int number) const;

  /// Sends SIGSTOP, and returns when the child has stopped.
  void stop() const;

  /// Sends SIGKILL and reaps the child: the kernel then keeps nothing of it.
  void kill();

  /// Waits until the child ends by itself. Returns its exit status, or minus the signal that
  /// ended it.
  int finish(std::chrono::milliseconds limit = kTimeout);

  /// Whether the child ends within that time; `finish` reaps it.
  bool endsWithin(std::chrono::milliseconds limit) const { return channel_.endsWithin(limit); }

  /// The processor time that it has used so far.
  double cpuSeconds() const;

  /// What the child has written to its log so far: the last 8 KiB.
  std::string log() const;

 private:
  struct Ends;
  ChildProcess(std::string name, Ends ends);
  int run(const Role& role, User user, int fd, const std::vector<int>& kept) const;
  [[noreturn]] void execute(const std::vector<std::string>& arguments, const std::string& input,
                            int output) const;
  int reap();

  std::string name_;
  Descriptor log_;
  Channel channel_;
  pid_t pid_ = -1;
};

/// Ends a forked child like _exit(2). What it has run counts for the coverage, too.
[[noreturn]] void exitChild(int status);

/// Runs `body` in a forked child, and returns the exit status that it returns; -1 when a signal has
/// ended the child.
int inChild(const std::function<int()>& body);

/// Runs `body` in a child and returns the text that it returns. Fails the test when the child
/// does not exit with 0.
std::string resultInChild(const std::function<std::string()>& body, User user = User::kSame);

}  // namespace Zorbe::Test
