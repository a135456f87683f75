// SPDX-License-Identifier: MIT
#include "unit/tools/pseudo_terminal.h"

#include "support/timeout.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace Zorbe::Test {

namespace {

constexpr int kPollMilliseconds = 20;  // at most, before the end of the program is noticed

Descriptor openMaster(winsize size) {
  Descriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!master.isOpen() || grantpt(master.get()) != 0 || unlockpt(master.get()) != 0 ||
      ioctl(master.get(), TIOCSWINSZ, &size) != 0) {
    throw std::runtime_error("no pseudo-terminal");
  }
  return master;
}

// In the child: only calls that are safe after fork(2).
[[noreturn]] void becomeProgram(const char* slave, char* const* arguments) {
  constexpr int kFailed = 126;
  setsid();
  const int terminal = open(slave, O_RDWR);  // becomes the controlling terminal
  if (terminal < 0) _exit(kFailed);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (dup2(terminal, fd) < 0) _exit(kFailed);
  }
  if (terminal > STDERR_FILENO) close(terminal);
  execv(arguments[0], arguments);
  _exit(kFailed);
}

}  // namespace

PseudoTerminal::PseudoTerminal(std::vector<std::string> arguments, unsigned short columns,
                               unsigned short rows)
    : master_(openMaster({rows, columns, 0, 0})), firstModes_(modes()) {
  char slave[64];
  if (ptsname_r(master_.get(), slave, sizeof slave) != 0) throw std::runtime_error("no name");
  std::vector<char*> words;
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) becomeProgram(slave, words.data());
}

PseudoTerminal::~PseudoTerminal() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void PseudoTerminal::type(const std::string& keys) const {
  EXPECT_EQ(write(master_.get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

// False when the program has closed the terminal.
bool PseudoTerminal::read(int milliseconds) {
  pollfd ready{master_.get(), POLLIN, 0};
  if (poll(&ready, 1, milliseconds) <= 0) return true;
  char text[4096];
  const ssize_t length = ::read(master_.get(), text, sizeof text);
  if (length <= 0) return false;
  output_.append(text, static_cast<size_t>(length));
  return true;
}

std::string PseudoTerminal::await(const std::string& text) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  size_t at = output_.find(text);
  while (at == std::string::npos && std::chrono::steady_clock::now() < deadline) {
    const bool isOpen = read(kPollMilliseconds);
    at = output_.find(text);
    if (!isOpen) break;
  }
  if (at == std::string::npos) {
    ADD_FAILURE() << "never: " << text << "\ninstead: " << output_;
    return output_;
  }
  std::string before = output_.substr(0, at);
  output_.erase(0, at + text.size());
  return before;
}

void PseudoTerminal::resize(unsigned short columns, unsigned short rows) const {
  const winsize size{rows, columns, 0, 0};
  EXPECT_EQ(ioctl(master_.get(), TIOCSWINSZ, &size), 0);
}

termios PseudoTerminal::modes() const {
  termios modes{};
  EXPECT_EQ(tcgetattr(master_.get(), &modes), 0);
  return modes;
}

void PseudoTerminal::stopOutput() const {
  char slave[64];
  ASSERT_EQ(ptsname_r(master_.get(), slave, sizeof slave), 0);
  const Descriptor terminal(open(slave, O_RDWR | O_NOCTTY | O_CLOEXEC));
  EXPECT_EQ(tcflow(terminal.get(), TCOOFF), 0);
}

int PseudoTerminal::finish() {
  const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  for (bool isOpen = true; std::chrono::steady_clock::now() < deadline;) {
    pollfd ready[] = {{process.get(), POLLIN, 0}, {isOpen ? master_.get() : -1, POLLIN, 0}};
    if (poll(ready, 2, 1000) > 0 && ready[0].revents != 0) break;
    if (ready[1].revents != 0) isOpen = read(0);
  }
  int status = 0;
  if (waitpid(pid_, &status, WNOHANG) != pid_) {
    ADD_FAILURE() << "it does not end: " << output_;
    return -SIGKILL;
  }
  pid_ = -1;
  while (master_.isOpen() && read(0)) {
    pollfd rest{master_.get(), POLLIN, 0};
    if (poll(&rest, 1, 0) <= 0) break;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace Zorbe::Test
