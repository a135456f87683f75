// SPDX-License-Identifier: MIT
//
// What the definitions of the intercepted functions are made of.
#pragma once

#include "fault/fault.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <type_traits>

// clang-format off
// A further call needs its name here and its definition in one of the fault_*.cpp.
#define ZORBE_FAULT_CALLS(X)                                                                  \
  X(accept) X(accept4) X(bind) X(chmod) X(clock_gettime) X(close) X(closedir) X(connect)      \
  X(dup) X(dup2) X(dup3)                                                                      \
  X(epoll_create1) X(epoll_ctl) X(epoll_wait) X(eventfd) X(fchmod) X(fclose) X(fcntl)         \
  X(fopen) X(fstat) X(getcwd) X(getpid) X(getrandom) X(getrlimit) X(getsockname) X(getsockopt) \
  X(inotify_add_watch)                                                                        \
  X(inotify_init1) X(inotify_rm_watch) X(linkat) X(listen) X(lstat) X(mkdir) X(mkdirat)       \
  X(mmap) X(mremap) X(munmap) X(open) X(openat) X(opendir) X(poll) X(posix_fallocate) X(ppoll) X(read) X(readdir) X(readlink) X(recv) X(recvmsg)     \
  X(rename) X(rmdir) \
  X(send) X(sendmsg) X(setns) X(setsockopt) X(shutdown) X(socket) X(stat) X(strerror) X(timerfd_create)   \
  X(timerfd_settime) X(umask) X(unlink) X(write) X(writev)
// clang-format on

namespace Zorbe::Test::Fault {

/// The symbol by which the calls of that name are made. Where _FILE_OFFSET_BITS and
/// _TIME_BITS ask for 64 bits, the headers give some functions the names of others.
inline const char* symbolOf(const char* name) {
#ifdef _TIME_BITS
  static constexpr const char* renamed[][2] = {
      {"clock_gettime", "__clock_gettime64"},
      {"fcntl", "__fcntl_time64"},
      {"fopen", "fopen64"},
      {"fstat", "__fstat64_time64"},
      {"getsockopt", "__getsockopt64"},
      {"getrlimit", "getrlimit64"},
      {"lstat", "__lstat64_time64"},
      {"mmap", "mmap64"},
      {"open", "open64"},
      {"openat", "openat64"},
      {"posix_fallocate", "posix_fallocate64"},
      {"ppoll", "__ppoll64"},
      {"readdir", "readdir64"},
      {"recvmsg", "__recvmsg64"},
      {"sendmsg", "__sendmsg64"},
      {"setsockopt", "__setsockopt64"},
      {"stat", "__stat64_time64"},
      {"timerfd_settime", "__timerfd_settime64"},
  };
  for (const auto& [plain, symbol] : renamed) {
    if (std::strcmp(name, plain) == 0) return symbol;
  }
#endif
  return name;
}

enum class Call : unsigned {
#define ZORBE_FAULT_ENUMERATOR(name) name##Call,
  ZORBE_FAULT_CALLS(ZORBE_FAULT_ENUMERATOR)
#undef ZORBE_FAULT_ENUMERATOR
};

struct Rule {
  Call call{};
  unsigned occurrence = 1;
  unsigned count = 1;
  bool replaces = true;  // false: the call is made for real
  int error = 0;
  bool hasResult = false;
  long result = 0;
  std::function<void()> action;
  std::function<std::optional<Failure>(const InterceptedCall&)> choose;  // until then for any call
  std::function<void(struct stat&)> change;
  std::string instead;  // the path that the call is made on
  int fd = -1;
  std::string path;
  unsigned seen = 0;
  unsigned fired = 0;
};

/// What a call is made on: a descriptor, a path or neither.
struct Target {
  int fd = -1;
  const char* path = nullptr;
};

/// Counts the call and returns the rule that applies: null when the call is made as it is.
/// Leaves errno alone. Allocates and locks nothing unless the call is armed.
std::shared_ptr<Rule> consult(Call call, Target target);

/// The definition that comes after this program's, or what the call is diverted to.
void* nextDefinition(Call call);

enum class WhenFailing { kSkip, kMakeAnyway };

template <class R>
R outcome(const Rule& rule) {
  if (rule.error != 0) errno = rule.error;
  if constexpr (std::is_pointer_v<R>) {
    return nullptr;
  } else {
    return rule.hasResult ? static_cast<R>(rule.result) : static_cast<R>(-1);
  }
}

/// The same as a function that can be called.
template <class Signature>
Signature* nextFunction(Call call) {
  return reinterpret_cast<Signature*>(nextDefinition(call));
}

/// Makes the call, or has it fail; `then` says whether it has its effect even when it fails.
template <class R, class... Args>
R intercept(WhenFailing then, Call call, Target target, Args... args) {
  const auto rule = consult(call, target);
  if (!rule || !rule->replaces) return nextFunction<R(Args...)>(call)(args...);
  if (then == WhenFailing::kMakeAnyway) nextFunction<R(Args...)>(call)(args...);
  return outcome<R>(*rule);
}
template <class R, class... Args>
R intercept(Call call, Target target, Args... args) {
  return intercept<R>(WhenFailing::kSkip, call, target, args...);
}

/// For calls on a path, which is their first argument, that may be redirected.
template <class R, class... Args>
R runOnPath(Call call, const char* path, Args... args) {
  const auto rule = consult(call, {-1, path});
  if (rule && rule->replaces) return outcome<R>(*rule);
  const bool redirected = rule && !rule->instead.empty();
  return nextFunction<R(const char*, Args...)>(call)(redirected ? rule->instead.c_str() : path,
                                                     args...);
}

/// For calls that move `size` bytes: a result that was asked for limits the real call,
/// which is `move(size)`.
template <class Move>
ssize_t transfer(Call call, Target target, size_t size, Move move) {
  const auto rule = consult(call, target);
  if (!rule || !rule->replaces) return move(size);
  if (!rule->hasResult || rule->result <= 0) return outcome<ssize_t>(*rule);
  return move(std::min(size, static_cast<size_t>(rule->result)));
}

/// For stat and its kin.
template <class... Args>
int examine(Call call, Target target, struct stat* status, Args... args) {
  const auto rule = consult(call, target);
  if (rule && rule->replaces) return outcome<int>(*rule);
  const int rc = nextFunction<int(Args..., struct stat*)>(call)(args..., status);
  if (rc == 0 && rule && rule->change) rule->change(*status);
  return rc;
}

}  // namespace Zorbe::Test::Fault
