// SPDX-License-Identifier: MIT
#include "stress/chaos/client_context.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>

namespace Zorbe::Test::Chaos {
namespace {

constexpr unsigned kMostLines = 256;

Brask::Linux::EventLoop* volatile toStop = nullptr;
volatile std::sig_atomic_t stopRequested = 0;

void leave(int /*signal*/) {
  stopRequested = 1;
  if (Brask::Linux::EventLoop* const loop = toStop) loop->stop();
}

void require(bool success, const char* call) {
  if (!success) throw std::system_error(errno, std::generic_category(), call);
}

}  // namespace

void leakDescriptor() {
  require(::open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0, "open");
}

ShortLog::ShortLog() : out_(std::cerr, 0) {}

void ShortLog::emit(std::ostringstream& message, int level) {
  if (++lines_ % kMostLines == 0) {
    require(::ftruncate(STDERR_FILENO, 0) == 0, "ftruncate");
    require(::lseek(STDERR_FILENO, 0, SEEK_SET) == 0, "lseek");
  }
  out_.emit(message, level);
}

// The parent has blocked the signal, so that none is lost before the handler is set.
ClientContext::ClientContext(Channel& parent, ProcessState& state) : parent_(parent) {
  toStop = &loop;
  struct sigaction action {};
  action.sa_handler = leave;
  require(::sigaction(SIGTERM, &action, nullptr) == 0, "sigaction");
  action.sa_handler = SIG_DFL;  // not the handler of the parent
  require(::sigaction(SIGINT, &action, nullptr) == 0, "sigaction");
  sigset_t terminate;
  ::sigemptyset(&terminate);
  ::sigaddset(&terminate, SIGTERM);
  require(::sigprocmask(SIG_UNBLOCK, &terminate, nullptr) == 0, "sigprocmask");
  state.pid = ::getpid();
}

bool ClientContext::isStopRequested() {
  return stopRequested != 0;
}

// Without waiting: while the parent has unread messages, it looks anyway.
void ClientContext::notifyParent() {
  if (::send(parent_.fd(), "!", 1, MSG_DONTWAIT | MSG_NOSIGNAL) == 1) return;
  require(errno == EAGAIN, "send");
}

}  // namespace Zorbe::Test::Chaos
