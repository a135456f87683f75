// SPDX-License-Identifier: MIT
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "stress/chaos/processes.h"
#include "support/noncopyable.h"

namespace Zorbe::Test::Chaos {
namespace {

/// While it exists, SIGTERM is blocked, also in a child that is made meanwhile until the child
/// unblocks it.
class BlockedTermination : private NonCopyable {
 public:
  BlockedTermination() {
    sigset_t terminate;
    ::sigemptyset(&terminate);
    ::sigaddset(&terminate, SIGTERM);
    if (::sigprocmask(SIG_BLOCK, &terminate, &before_) != 0) throw Failure("sigprocmask");
  }
  ~BlockedTermination() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace

Member::Member(std::string name, ProcessState& state, Role role)
    : name_(std::move(name)), state_(state), role_(std::move(role)) {}

void Member::start() {
  clearState();
  const BlockedTermination later;
  process_ =
      std::make_unique<ChildProcess>(name_, [this](Channel& parent) { role_(parent, state_); });
}

// The process that had it has ended.
void Member::clearState() {
  state_.pid = 0;
  state_.writing = false;
  state_.attached = false;
  for (auto* number : {&state_.incarnation, &state_.position, &state_.digest}) *number = 0;
  for (auto* number : {&state_.torn, &state_.answered, &state_.takeovers, &state_.lost})
    *number = 0;
  state_.otherWriter = 0;
}

void Member::kill() {
  process_->kill();
  process_.reset();
  stopped_ = false;
  requireSanity();
  clearState();
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
  clearState();
}

void Member::requireSanity() {
  if (const pid_t other = state_.otherWriter) {
    throw Failure("two writers: " + name_ + " has become one beside process " +
                  std::to_string(other));
  }
  if (state_.torn > 0) throw Failure(name_ + " has received a torn record");
  if (const uint32_t lost = state_.lost)
    throw Failure(name_ + " took over a table that has lost " + std::to_string(lost) + " changes");
}

void Member::signal(int number) {
  if (::kill(pid(), number) == 0) return;
  throw Failure("signal " + std::to_string(number) + " to " + name_ + ": " + std::strerror(errno));
}

}  // namespace Zorbe::Test::Chaos
