// SPDX-License-Identifier: MIT
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "stress/chaos/processes.h"

namespace Zorbe::Test::Chaos {
namespace {

/// While it exists, SIGTERM is blocked, also in a child that is made meanwhile until the child
/// unblocks it.
class BlockedTermination {
 public:
  BlockedTermination() {
    sigset_t terminate;
    ::sigemptyset(&terminate);
    ::sigaddset(&terminate, SIGTERM);
    if (::sigprocmask(SIG_BLOCK, &terminate, &before_) != 0) throw Failure("sigprocmask");
  }
  ~BlockedTermination() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }
  BlockedTermination(const BlockedTermination&) = delete;
  BlockedTermination& operator=(const BlockedTermination&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

Member::Member(std::string name, Place& place, Role role)
    : name_(std::move(name)), place_(place), role_(std::move(role)) {}

void Member::start() {
  clearPlace();
  const BlockedTermination later;
  process_ =
      std::make_unique<ChildProcess>(name_, [this](Channel& parent) { role_(parent, place_); });
}

// The process that had it has ended.
void Member::clearPlace() {
  place_.pid = 0;
  place_.writing = false;
  place_.attached = false;
  for (auto* number : {&place_.incarnation, &place_.position, &place_.digest}) *number = 0;
  for (auto* number : {&place_.torn, &place_.answered, &place_.takeovers, &place_.lost})
    *number = 0;
  place_.otherWriter = 0;
}

void Member::kill() {
  process_->kill();
  process_.reset();
  stopped_ = false;
  requireSanity();
  clearPlace();
}

// Waits until it has stopped. One that has ended instead is left for its ChildProcess to reap.
void Member::stop() {
  signal(SIGSTOP);
  siginfo_t info{};
  while (::waitid(P_PID, static_cast<id_t>(pid()), &info, WSTOPPED | WEXITED | WNOWAIT) != 0) {
    if (errno != EINTR) throw Failure(name_ + " cannot be stopped: " + std::strerror(errno));
  }
  if (info.si_code != CLD_STOPPED) throw Failure(name_ + " has ended by itself\n" + log());
  stopped_ = true;
}

void Member::resume() {
  signal(SIGCONT);
  stopped_ = false;
}

void Member::leave() {
  signal(SIGTERM);
  const int status = process_->finish();
  if (status != 0)
    throw Failure(name_ + " has left with status " + std::to_string(status) + "\n" + log());
  requireSanity();
  process_.reset();
  clearPlace();
}

void Member::requireSanity() {
  if (const pid_t other = place_.otherWriter) {
    throw Failure("two writers: " + name_ + " has become one beside process " +
                  std::to_string(other));
  }
  if (place_.torn > 0) throw Failure(name_ + " has received a torn record");
  if (const uint32_t lost = place_.lost)
    throw Failure(name_ + " took over a table that has lost " + std::to_string(lost) + " changes");
}

void Member::signal(int number) {
  if (::kill(pid(), number) == 0) return;
  throw Failure("signal " + std::to_string(number) + " to " + name_ + ": " + std::strerror(errno));
}

}  // namespace Zorbe::Test::Chaos
