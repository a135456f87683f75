// SPDX-License-Identifier: MIT
#include "stress/chaos/stage.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>

namespace Zorbe::Test::Chaos {
namespace {

constexpr unsigned mostLines = 256;

Brask::Linux::EventLoop* volatile toStop = nullptr;
volatile std::sig_atomic_t askedToLeave = 0;

void leave(int /*signal*/) {
  askedToLeave = 1;
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
  if (++lines_ % mostLines == 0) {
    require(::ftruncate(STDERR_FILENO, 0) == 0, "ftruncate");
    require(::lseek(STDERR_FILENO, 0, SEEK_SET) == 0, "lseek");
  }
  out_.emit(message, level);
}

// The conductor has blocked the signal, so that none is lost before somebody cares for it.
ChaosStage::ChaosStage(Channel& parent, Place& place) : parent_(parent) {
  toStop = &loop;
  struct sigaction action {};
  action.sa_handler = leave;
  require(::sigaction(SIGTERM, &action, nullptr) == 0, "sigaction");
  action.sa_handler = SIG_DFL;  // what the conductor does about it is its own business
  require(::sigaction(SIGINT, &action, nullptr) == 0, "sigaction");
  sigset_t terminate;
  ::sigemptyset(&terminate);
  ::sigaddset(&terminate, SIGTERM);
  require(::sigprocmask(SIG_UNBLOCK, &terminate, nullptr) == 0, "sigprocmask");
  place.pid = ::getpid();
}

bool ChaosStage::isAskedToLeave() {
  return askedToLeave != 0;
}

// Without waiting: when the conductor has so much to hear already, it will look anyway.
void ChaosStage::ring() {
  if (::send(parent_.fd(), "!", 1, MSG_DONTWAIT | MSG_NOSIGNAL) == 1) return;
  require(errno == EAGAIN, "send");
}

}  // namespace Zorbe::Test::Chaos
