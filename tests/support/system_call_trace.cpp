// SPDX-License-Identifier: MIT
#include "support/system_call_trace.h"

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

bool go(pid_t child, int signal = 0) {
  return ::ptrace(PTRACE_SYSCALL, child, nullptr, signal) == 0;
}

}  // namespace

void SystemCallTrace::mark() {
  ::syscall(kMarkingCall);
}

bool SystemCallTrace::watch(pid_t child) {
  if (::ptrace(PTRACE_SEIZE, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
    return false;
  }
  int status = 0;
  EXPECT_EQ(::ptrace(PTRACE_INTERRUPT, child, nullptr, nullptr), 0);
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSTOPPED(status));
  watched_[child] = Watched();
  return go(child);
}

// Returns false when there is nothing more to record of this child.
bool SystemCallTrace::record(pid_t child) {
  __ptrace_syscall_info info = {};
  const long size =
      ::ptrace(PTRACE_GET_SYSCALL_INFO, child, reinterpret_cast<void*>(sizeof info), &info);
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
    int status = 0;
    const pid_t child = ::waitpid(-1, &status, __WALL);
    if (child < 0 && errno == EINTR) continue;
    ASSERT_GT(child, 0);
    ASSERT_TRUE(WIFSTOPPED(status)) << child << " has ended: " << status;
    const bool atCall = WSTOPSIG(status) == (SIGTRAP | 0x80);
    if (atCall && !record(child)) {
      --left;
    } else {
      const bool signalled = !atCall && status >> 16 == 0;
      EXPECT_TRUE(go(child, signalled ? WSTOPSIG(status) : 0));
    }
  }
  for (const auto& [child, watched] : watched_) {
    EXPECT_EQ(::ptrace(PTRACE_DETACH, child, nullptr, nullptr), 0);
  }
}

}  // namespace Zorbe::Test
