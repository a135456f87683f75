// SPDX-License-Identifier: MIT
#include "support/tracer.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace Zorbe::Test {
namespace {

constexpr long kMarkingCall = SYS_getppid;  // nothing else makes it

std::string nameOf(uint64_t number) {
  static const std::map<uint64_t, std::string> kNames = {
      {SYS_sendto, "send"},
      {SYS_recvfrom, "recv"},
#ifdef SYS_epoll_wait
      {SYS_epoll_wait, "epoll_wait"},
#endif
      {SYS_epoll_pwait, "epoll_wait"},
      {SYS_epoll_pwait2, "epoll_wait"},
      {SYS_read, "read"},
      {SYS_write, "write"},
      {SYS_close, "close"},
      {SYS_epoll_ctl, "epoll_ctl"},
      {SYS_timerfd_settime, "timerfd_settime"},
      {SYS_clock_gettime, "clock_gettime"},
      {SYS_mmap, "mmap"},
      {SYS_munmap, "munmap"},
      {SYS_madvise, "madvise"},
      {SYS_brk, "brk"},
      {SYS_futex, "futex"},
  };
  const auto name = kNames.find(number);
  return name == kNames.end() ? "call " + std::to_string(number) : name->second;
}

}  // namespace

bool Tracer::attach(pid_t child) {
  if (::ptrace(PTRACE_SEIZE, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
    return false;
  }
  EXPECT_EQ(::ptrace(PTRACE_INTERRUPT, child, nullptr, nullptr), 0);
  EXPECT_TRUE(WIFSTOPPED(wait(child).status));
  return true;
}

void Tracer::resume(pid_t child, int request, int signal) {
  EXPECT_EQ(::ptrace(static_cast<__ptrace_request>(request), child, nullptr, signal), 0);
}

Tracer::Stop Tracer::wait(pid_t child) {
  Stop stop = {};
  do {
    stop.child = ::waitpid(child, &stop.status, __WALL);
  } while (stop.child < 0 && errno == EINTR);
  EXPECT_GT(stop.child, 0);
  return stop;
}

void SystemCallTrace::mark() {
  ::syscall(kMarkingCall);
}

bool SystemCallTrace::watch(pid_t child) {
  if (!Tracer::attach(child)) return false;
  watched_[child] = Watched();
  Tracer::resume(child, PTRACE_SYSCALL);
  return true;
}

// Returns false when there is nothing more to record of this child.
bool SystemCallTrace::record(pid_t child) {
  __ptrace_syscall_info info = {};
  const long size = ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
  EXPECT_GT(size, 0);
  if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return true;
  Watched& watched = watched_.at(child);
  if (info.entry.nr == static_cast<uint64_t>(kMarkingCall)) return ++watched.marks < 2;
  if (watched.marks == 1) watched.calls.push_back(nameOf(info.entry.nr));
  return true;
}

// A child stays where it is after its second mark, so that none can end meanwhile.
void SystemCallTrace::run() {
  for (size_t left = watched_.size(); left > 0;) {
    const auto [child, status] = Tracer::wait(-1);
    ASSERT_TRUE(WIFSTOPPED(status)) << child << " has ended: " << status;
    const bool atCall = WSTOPSIG(status) == (SIGTRAP | 0x80);
    if (atCall && !record(child)) {
      --left;
    } else {
      const bool signalled = !atCall && status >> 16 == 0;
      Tracer::resume(child, PTRACE_SYSCALL, signalled ? WSTOPSIG(status) : 0);
    }
  }
  for (const auto& [child, watched] : watched_) {
    EXPECT_EQ(::ptrace(PTRACE_DETACH, child, nullptr, nullptr), 0);
  }
}

}  // namespace Zorbe::Test
