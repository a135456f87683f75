// SPDX-License-Identifier: MIT
#include "records/streams.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace Zorbe::Tool {

namespace {

int require(int result, const char* call) {
  const int error = errno;
  if (result < 0) throw std::system_error(error, std::generic_category(), call);
  return result;
}

sigset_t stopSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGINT);
  ::sigaddset(&signals, SIGTERM);
  return signals;
}

int openSignals(sigset_t& before) {
  const sigset_t signals = stopSignals();
  require(::sigprocmask(SIG_BLOCK, &signals, &before), "sigprocmask()");
  return require(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd()");
}

}  // namespace

void occupyStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    // Gets the lowest number that is free, and stays open.
    require(::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY), "open(/dev/null)");
  }
}

StopSignals::StopSignals() : fd_(openSignals(before_)) {}

// A signal that nobody has looked at has ended the command all the same.
StopSignals::~StopSignals() {
  signalfd_siginfo info;
  while (::read(fd_.get(), &info, sizeof info) > 0) {
  }
  static_cast<void>(::sigprocmask(SIG_SETMASK, &before_, nullptr));
}

Outlet::Outlet(const StopSignals& stop) : stop_(stop) {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // write() reports it
}

// As much as a pipe that is writable takes without blocking: a full one would hold up signals.
bool Outlet::write(std::string_view text) {
  while (!text.empty()) {
    pollfd fds[] = {{stop_.fd(), POLLIN, 0}, {STDOUT_FILENO, POLLOUT, 0}};
    require(::poll(fds, 2, -1), "poll()");
    if (fds[0].revents != 0 || (fds[1].revents & POLLHUP) != 0) return false;
    const ssize_t length =
        ::write(STDOUT_FILENO, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
    const int error = errno;
    if (length < 0 && error == EPIPE) return false;
    if (length < 0 && error != EINTR && error != EAGAIN) {
      throw std::system_error(error, std::generic_category(), "cannot write to standard output");
    }
    if (length > 0) text.remove_prefix(static_cast<size_t>(length));
  }
  return true;
}

bool Outlet::wait(int fd, int milliseconds) {
  pollfd fds[] = {{stop_.fd(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}, {fd, POLLIN, 0}};
  const int ready = ::poll(fds, 3, milliseconds);
  const int error = errno;
  if (ready < 0 && error != EINTR)
    throw std::system_error(error, std::generic_category(), "poll()");
  return ready < 0 || (fds[0].revents == 0 && fds[1].revents == 0);
}

}  // namespace Zorbe::Tool
