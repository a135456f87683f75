// SPDX-License-Identifier: MIT
//
// Makes system calls fail, or records them, without changes to the code that makes them: the
// test program defines the C library's functions itself, so that the library, the platform and
// the C++ library all call here first, and forwards each call.
//
//     Fault::arm("recv", 2, ECONNRESET);                        // the second from now
//     Fault::arm("open", 1, EACCES).onPath("/proc/net/unix");
//     Fault::armResult("send", 1, 3);                           // a short one
//     Fault::before("mkdir", 1, [&] { removeParent(); });       // a race
//     EXPECT_EQ(Fault::calls("epoll_ctl"), 0u);
//
// Calls go by the names of the manual: "open" covers open64 as well, and so on. A
// call that nothing is armed for costs one counter and allocates nothing. What libc
// calls inside itself (fopen's open, opendir's) is not seen: arm "fopen", "opendir".
//
// Threads: any thread may make calls; arming belongs to the test's own thread.
#pragma once

#include "support/noncopyable.h"

#include <sys/stat.h>

#include <climits>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zorbe::Test::Fault {

struct Rule;

/// A count that never runs out.
inline constexpr unsigned kForever = UINT_MAX;

/// What was armed: restricts it, and counts how often it fired.
class Armed {
 public:
  explicit Armed(std::shared_ptr<Rule> rule) : rule_(std::move(rule)) {}

  /// Only calls on this descriptor count (for epoll_ctl the one that is added).
  Armed& onFd(int fd);

  /// Only calls on this path count, or on a descriptor that /proc/self/fd shows as it.
  Armed& onPath(const std::string& path);

  /// How often it has fired.
  unsigned fired() const;

 private:
  std::shared_ptr<Rule> rule_;
};

/// From the `occurrence`th matching call on (1 is the next), `count` calls fail with
/// `error` and are not made; those that return a pointer return null. With `error` 0
/// errno is left alone. A failing close, fclose or closedir does close, as on Linux.
///
/// A name that is not intercepted throws std::invalid_argument. Where several are due,
/// the first armed fires.
Armed arm(const std::string& call, unsigned occurrence, int error, unsigned count = 1);

/// The same, but the calls return `result`. A read, recv, write or send really moves as
/// much, at most `result` bytes; 0 moves nothing. All others are not made (but closed).
Armed armResult(const std::string& call, unsigned occurrence, long result, unsigned count = 1);

/// What a call that fails looks like: an errno, or the result that armResult describes.
struct Failure {
  int error = 0;
  std::optional<long> result = std::nullopt;
};

/// A call about to be made: its name, and the path that it is made on or that its
/// descriptor refers to ("" where there is none).
struct InterceptedCall {
  std::string call;
  std::string target;
};

/// The `occurrence`th call from now on, of any name, fails as `choose` says, or is
/// made as it is when `choose` says nothing; and so do all later ones of the same name
/// when `count` is `kForever`.
Armed armAny(unsigned occurrence,
             std::function<std::optional<Failure>(const InterceptedCall&)> choose,
             unsigned count = 1);

/// Runs `action` right before the call is made for real. Calls made by `action` itself
/// are neither counted nor made to fail.
Armed before(const std::string& call, unsigned occurrence, std::function<void()> action);

/// Changes what a successful stat, lstat or fstat returns.
Armed alterStat(const std::string& call, unsigned occurrence,
                std::function<void(struct stat&)> change);

/// From now on open, fopen, opendir and readlink of `path` are made on `instead`: for
/// what only the system can write, as /proc/net/unix.
Armed redirect(const std::string& call, const std::string& path, const std::string& instead);

/// From now on calls of this name, unless something armed makes them fail, are made on
/// `function`, which has the call's own type, instead of the C library's. What the function
/// calls under Bypass is the C library's. "clock_gettime" can be diverted and nothing else.
void divertTo(const std::string& call, void* function);

/// divert("open", myOpen, "close", myClose)
template <class Function, class... More>
void divert(const std::string& call, Function* function, More... more) {
  divertTo(call, reinterpret_cast<void*>(function));
  if constexpr (sizeof...(more) != 0) divert(more...);
}

/// Until `reset`, diversions apply only while `applies` returns true.
void divertOnlyWhile(bool (*applies)());

/// Calls of this name since `reset`, made to fail or not.
unsigned calls(const std::string& call);

/// The names of the calls since `startJournal`, in order; the first 65536 are kept.
void startJournal();
std::vector<std::string> journal();

/// What was armed and has never fired, as "recv, occurrence 2".
std::vector<std::string> unfired();

/// Disarms everything, ends diversions, forgets the counts and stops the journal.
void reset();

/// While one exists, this thread's calls are neither counted nor made to fail: for what
/// the test does itself.
class Bypass : private NonCopyable {
 public:
  Bypass();
  ~Bypass();
};

/// Whether one exists in this thread; there is one while an armed call is being checked.
bool isBypassed();

}  // namespace Zorbe::Test::Fault
