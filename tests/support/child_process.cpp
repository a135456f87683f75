// SPDX-License-Identifier: MIT
#include "support/child_process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "fault/fault.h"
#include "support/child.h"

namespace Zorbe::Test {
namespace {

constexpr size_t longestMessage = 4096;
constexpr off_t longestLog = 8192;
constexpr int childChannel = 3;

int require(int result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

int openLog() {
  return require(::memfd_create("log of a child", MFD_CLOEXEC), "memfd_create");
}

// Only what the child needs: what it inherits beyond would keep its siblings' channels alive.
void arrangeDescriptors(int log, int channel) {
  require(::dup2(log, STDOUT_FILENO), "dup2");
  require(::dup2(log, STDERR_FILENO), "dup2");
  if (channel != childChannel) require(::dup2(channel, childChannel), "dup2");
  require(::close_range(childChannel + 1, ~0U, 0), "close_range");
}

}  // namespace

Channel::Channel(int fd, std::string peer) : fd_(fd), peer_(std::move(peer)) {}

Channel::~Channel() {
  const Fault::Bypass bypass;
  EXPECT_EQ(::close(fd_), 0);
}

void Channel::tell(const std::string& words) {
  const Fault::Bypass bypass;
  require(static_cast<int>(::send(fd_, words.data(), words.size(), MSG_NOSIGNAL)), peer_.c_str());
}

bool Channel::receive(std::string& words) {
  const Fault::Bypass bypass;
  const auto deadline = std::chrono::steady_clock::now() + patience;
  pollfd waiting = {fd_, POLLIN, 0};
  int ready;
  do {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    ready = ::poll(&waiting, 1, static_cast<int>(std::max<long long>(0, left.count())));
  } while (ready < 0 && errno == EINTR);
  if (require(ready, "poll") == 0) throw std::runtime_error(peer_ + " has not answered in time");
  char buffer[longestMessage];
  const ssize_t length = ::recv(fd_, buffer, sizeof buffer, 0);
  if (length <= 0) return false;  // a peer that was killed resets the connection
  words.assign(buffer, static_cast<size_t>(length));
  return true;
}

std::string Channel::hear() {
  std::string words;
  if (!receive(words)) throw std::runtime_error(peer_ + " has gone");
  return words;
}

void Channel::await(const std::string& words) {
  for (std::string heard = hear(); heard != words;) {
    try {
      heard = hear();
    } catch (const std::runtime_error& reason) {
      throw std::runtime_error("no \"" + words + "\" after \"" + heard + "\": " + reason.what());
    }
  }
}

std::string Channel::awaitBehind(const std::string& start) {
  for (;;) {
    const std::string heard = hear();
    if (heard.compare(0, start.size(), start) == 0) return heard.substr(start.size());
  }
}

void Channel::awaitEnd() {
  for (std::string words; receive(words);) continue;
}

bool Channel::drain() {
  const Fault::Bypass bypass;
  char buffer[longestMessage];
  ssize_t length;
  do {
    length = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
  } while (length > 0 || (length < 0 && errno == EINTR));
  return length < 0 && errno == EAGAIN;
}

struct ChildProcess::Ends {
  int ours;
  int childs;

  static Ends open() {
    int pair[2];
    require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), "socketpair");
    return {pair[0], pair[1]};
  }
};

ChildProcess::ChildProcess(std::string name, const Role& role)
    : ChildProcess(std::move(name), role, Ends::open()) {}

ChildProcess::ChildProcess(std::string name, const Role& role, Ends ends)
    : name_(std::move(name)), log_(openLog()), channel_(ends.ours, name_) {
  std::cout.flush();
  std::fflush(nullptr);
  pid_ = startChild([&] { return play(role, ends.childs); });
  const Fault::Bypass bypass;
  EXPECT_EQ(::close(ends.childs), 0);
}

int ChildProcess::play(const Role& role, int fd) const {
  int status = EXIT_FAILURE;
  try {
    require(::prctl(PR_SET_PDEATHSIG, SIGKILL), "prctl");
    arrangeDescriptors(log_, fd);
    Channel parent(childChannel, "the test");
    role(parent);
    if (!testing::Test::HasFailure()) status = EXIT_SUCCESS;
  } catch (const std::exception& exception) {
    std::cerr << "ends with an exception: " << exception.what() << std::endl;
  }
  std::cout.flush();
  std::fflush(nullptr);
  return status;
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) kill();
  if (testing::Test::HasFailure())
    std::cout << "---- log of " << name_ << ":\n" << log() << "----\n";
  const Fault::Bypass bypass;
  EXPECT_EQ(::close(log_), 0);
}

void ChildProcess::kill() {
  if (::kill(pid_, SIGKILL) != 0) ADD_FAILURE() << "kill " << name_ << ": errno " << errno;
  reap();
}

int ChildProcess::finish() {
  channel_.awaitEnd();
  return reap();
}

int ChildProcess::reap() {
  int status = 0;
  pid_t reaped;
  do {
    reaped = ::waitpid(pid_, &status, 0);
  } while (reaped < 0 && errno == EINTR);
  EXPECT_EQ(reaped, pid_) << name_;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string ChildProcess::log() const {
  const Fault::Bypass bypass;
  const off_t size = ::lseek(log_, 0, SEEK_END);
  std::string text(static_cast<size_t>(std::min(std::max<off_t>(size, 0), longestLog)), '\0');
  const off_t start = size - static_cast<off_t>(text.size());
  const ssize_t length = ::pread(log_, text.data(), text.size(), start);
  text.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
  return text;
}

}  // namespace Zorbe::Test
