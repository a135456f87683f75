// SPDX-License-Identifier: MIT
#include "stress/sweep/failures.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>

namespace Zorbe::Test::Sweep {
namespace {

using Errors = std::vector<int>;
using Results = std::vector<long>;

struct Ways {
  Errors errors;
  Results results = {};
};

// clang-format off
// Sections 2 and 3 of the manual; EINTR is listed for all that may block.
const std::map<std::string, Ways> kWays = {
    {"accept", {{EMFILE, ECONNABORTED, EINTR, EAGAIN, ENFILE, ENOBUFS, ENOMEM, EPERM, EPROTO,
                 EBADF, EFAULT, EINVAL, ENOTSOCK, EOPNOTSUPP, ENETDOWN, ENOPROTOOPT, EHOSTDOWN,
                 ENONET, EHOSTUNREACH, ENETUNREACH, ENOSR, ESOCKTNOSUPPORT, EPROTONOSUPPORT,
                 ETIMEDOUT}}},
    {"bind", {{EADDRINUSE, ENOMEM, EACCES, EBADF, EINVAL, ENOTSOCK, EADDRNOTAVAIL, EFAULT, ELOOP,
               ENAMETOOLONG, ENOENT, ENOTDIR, EROFS}}},
    {"chmod", {{EPERM, EROFS, EACCES, EFAULT, EIO, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR,
                EINTR}}},
    {"close", {{EIO, EINTR, EBADF, ENOSPC, EDQUOT}}},
    {"closedir", {{EBADF, EIO, EINTR}}},
    {"connect", {{ECONNREFUSED, EINTR, EAGAIN, EACCES, EPERM, EADDRINUSE, EADDRNOTAVAIL,
                  EAFNOSUPPORT, EALREADY, EBADF, EFAULT, EINPROGRESS, EISCONN, ENETUNREACH,
                  ENOTSOCK, EPROTOTYPE, ETIMEDOUT, ENOENT}}},
    {"dup3", {{EMFILE, EINTR, EBADF, EBUSY, EINVAL}}},
    {"epoll_create1", {{EMFILE, ENFILE, EINVAL, ENOMEM}}},
    {"epoll_ctl", {{ENOSPC, ENOMEM, EBADF, EEXIST, EINVAL, ELOOP, ENOENT, EPERM}}},
    {"epoll_wait", {{EINTR, EINVAL, EBADF, EFAULT}}},
    {"eventfd", {{EMFILE, ENFILE, EINVAL, ENODEV, ENOMEM}}},
    {"fchmod", {{EPERM, EROFS, EACCES, EBADF, EIO, EINTR}}},
    {"fclose", {{EIO, EINTR, ENOSPC, EBADF, EDQUOT}}},
    {"fcntl", {{EBADF, EINTR, EINVAL, EPERM, EACCES, EAGAIN, EBUSY, EDEADLK, EFAULT, EMFILE,
                ENOLCK}}},
    {"fopen", {{EMFILE, EACCES, EINTR, ENOENT, ENOSPC, EROFS, EISDIR, ELOOP, ENAMETOOLONG, ENFILE,
                ENOMEM, ENOTDIR, EPERM, ETXTBSY, EDQUOT}}},
    {"fstat", {{EBADF, EFAULT, ENOMEM, EOVERFLOW}}},
    {"getsockopt", {{ENOTSOCK, EBADF, EFAULT, EINVAL, ENOPROTOOPT}}},
    {"inotify_add_watch", {{ENOSPC, ENOENT, EACCES, EBADF, EFAULT, EINVAL, ENAMETOOLONG, ENOMEM,
                            ENOTDIR, EEXIST}}},
    {"inotify_init1", {{EMFILE, ENFILE, EINVAL, ENOMEM}}},
    {"inotify_rm_watch", {{EINVAL, EBADF}}},
    {"listen", {{EADDRINUSE, EBADF, ENOTSOCK, EOPNOTSUPP}}},
    {"lstat", {{EACCES, ENOENT, EFAULT, ELOOP, ENAMETOOLONG, ENOMEM, ENOTDIR, EOVERFLOW}}},
    {"mkdirat", {{ENOSPC, EACCES, EEXIST, EROFS, EDQUOT, EFAULT, EINVAL, ELOOP, EMLINK, ENAMETOOLONG,
                ENOENT, ENOMEM, ENOTDIR, EPERM, EINTR}}},
    {"open", {{EMFILE, EACCES, EINTR, ENOENT, ENFILE, EBUSY, EDQUOT, EEXIST, EFAULT, EFBIG, EINVAL,
               EISDIR, ELOOP, ENAMETOOLONG, ENODEV, ENOMEM, ENOSPC, ENOTDIR, ENXIO, EOPNOTSUPP,
               EOVERFLOW, EPERM, EROFS, ETXTBSY, EWOULDBLOCK}}},
    {"openat", {{EMFILE, EACCES, EINTR, ENOENT, ENFILE, ELOOP, ENOMEM, ENOTDIR, EPERM}}},
    {"opendir", {{EMFILE, EACCES, ENFILE, ENOENT, ENOMEM, ENOTDIR, EINTR}}},
    {"poll", {{EINTR, EFAULT, EINVAL, ENOMEM}}},
    {"read", {{EIO, EINTR, EAGAIN, EBADF, EFAULT, EINVAL, EISDIR}, {1, 0}}},
    {"readdir", {{EBADF, EIO, EINTR}}},
    {"readlink", {{EACCES, EINVAL, EFAULT, EIO, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR}}},
    {"recv", {{ECONNRESET, EINTR, EAGAIN, EBADF, ECONNREFUSED, EFAULT, EINVAL, ENOMEM, ENOTCONN,
               ENOTSOCK}, {0, 1, 7}}},
    {"rmdir", {{EBUSY, EACCES, EFAULT, EINVAL, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR,
                ENOTEMPTY, EPERM, EROFS}}},
    {"send", {{EAGAIN, EPIPE, EINTR, EACCES, EALREADY, EBADF, ECONNRESET, EDESTADDRREQ, EFAULT,
               EINVAL, EISCONN, EMSGSIZE, ENOBUFS, ENOMEM, ENOTCONN, ENOTSOCK, EOPNOTSUPP},
              {0, 1, 7}}},
    {"setns", {{EPERM, EINVAL, EBADF, ENOMEM, ESRCH}}},
    {"setsockopt", {{ENOPROTOOPT, EBADF, EFAULT, EINVAL, ENOTSOCK}}},
    {"socket", {{EMFILE, EACCES, EAFNOSUPPORT, EINVAL, ENFILE, ENOBUFS, ENOMEM,
                 EPROTONOSUPPORT}}},
    {"stat", {{EACCES, ENOENT, EIO, EBADF, EFAULT, ELOOP, ENAMETOOLONG, ENOMEM, ENOTDIR,
               EOVERFLOW}}},
    {"timerfd_create", {{EMFILE, EINVAL, ENFILE, ENODEV, ENOMEM, EPERM}}},
    {"timerfd_settime", {{EINVAL, EBADF, ECANCELED, EFAULT}}},
    {"unlink", {{EACCES, EBUSY, EFAULT, EIO, EISDIR, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR,
                 EPERM, EROFS}}},
    {"write", {{ENOSPC, EINTR, EAGAIN, EBADF, EDESTADDRREQ, EDQUOT, EFAULT, EFBIG, EINVAL, EIO,
                EPERM, EPIPE}, {1}}},
    {"writev", {{ENOSPC, EINTR, EAGAIN, EBADF, EDQUOT, EFAULT, EFBIG, EINVAL, EIO, EPERM, EPIPE}}},
    // These cannot fail.
    {"getpid", {}},
    {"strerror", {}},
    {"umask", {}},
};
// clang-format on

bool startsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

struct Harmless {
  const char* call;
  const char* start;  // of the target
  const char* end;
  int error;  // 0: any
  const char* why;
};

constexpr int kShortened = -1;  // instead of an error: a short result

// Failures that need not be reported, and why. The sweep checks the recovery nevertheless.
const Harmless kHarmless[] = {
    {"accept", "socket:", "", EAGAIN, "reported again while a reader is waiting"},
    {"bind", "socket:", "", EADDRINUSE, "what the second writer meets anyway"},
    {"close", "/", "", 0, "a directory: nothing was written that could be lost"},
    {"close", "anon_inode:", "", 0, "nothing was written that could be lost"},
    {"close", "/", "/fenix", 0, "nothing was written that could be lost"},
    {"close", "/", "/last-owner", 0, "nothing was written that could be lost"},
    {"close", "/proc/", "", 0, "nothing was written that could be lost"},
    {"close", "net:", "", 0, "it is closed, and the thread has moved already"},
    {"connect", "socket:", "", ECONNREFUSED, "what a reader meets anyway while there is no writer"},
    {"epoll_ctl", "", "", 0, "the kernel has forgotten a closed descriptor by itself"},
    {"epoll_wait", "", "", EINTR, "the loop waits again"},
    {"fclose", "", "", 0, "a client that depends on a written file reads it back"},
    {"fopen", "/proc/net/unix", "", 0, "the holder of the lock is not found: pid 0"},
    {"getsockopt", "", "", 0, "only a listening socket is paused when descriptors run out"},
    {"inotify_add_watch", "", "", 0, "added again, with success, before the failure is reported"},
    {"inotify_rm_watch", "", "", 0, "a watch too many costs wake-ups only"},
    {"fchmod", "", "", EACCES, "the path is made again: its maker may not have opened it yet"},
    {"mkdirat", "", "", EACCES, "the path is made again: its maker may not have opened it yet"},
    {"mkdirat", "", "", EEXIST, "the path is made again: another process has made it"},
    {"mkdirat", "", "", ENOENT, "the path is made again: it has been removed meanwhile"},
    {"open", "/run/netns/default", "", ENOENT, "the namespace of process 1 is tried instead"},
    {"open", "/", "/", EACCES, "the path is made again: its maker may not have opened it yet"},
    {"open", "/", "/", EEXIST, "the path is made again: another process has made it"},
    {"open", "/", "/", ENOENT, "the path is made again: it has been removed meanwhile"},
    {"openat", "", "", EACCES, "a directory that cannot be opened is changed by its name"},
    {"openat", "", "", ELOOP, "the path is made again: something else has taken its place"},
    {"openat", "", "", ENOENT, "the path is made again: it has been removed meanwhile"},
    {"openat", "", "", ENOTDIR, "the path is made again: something else has taken its place"},
    {"read", "", "", EINTR, "read again"},
    {"read", "/", "", kShortened, "read on, or taken for the end of the file"},
    {"read", "anon_inode:", "", kShortened, "reported again while there is something to read"},
    {"read", "anon_inode:", "", EAGAIN, "reported again while there is something to read"},
    {"read", "/", "/unix", 0, "the holder of the lock is not found: pid 0"},
    {"readlink", "", "", 0, "an unknown executable is empty"},
    {"recv", "socket:", "", EAGAIN, "reported again while there is something to receive"},
    {"recv", "socket:", "", kShortened,
     "a kick is one byte, and an end is an end; short reports are logged"},
    {"send", "socket:", "", kShortened, "a kick is one byte; short reports are logged"},
    {"rmdir", "", "", ENOENT, "a missing directory counts as removed"},
    {"stat", "", "", 0, "taken for missing, and made"},
    {"timerfd_settime", "", "", 0, "a turn is requested, which sets it"},
    {"unlink", "", "", ENOENT, "a missing file counts as removed"},
    {"write", "anon_inode:[eventfd]", "", 0, "run() sees the stop request without it"},
    {"write", "/", "", 0, "a client that depends on a written file reads it back"},
    {"writev", "/", "", 0, "a client that depends on a written file reads it back"},
};

}  // namespace

bool isFull() {
  const char* const form = std::getenv("ZORBE_SWEEP");
  return form != nullptr && std::string(form) == "full";
}

std::vector<Fault::Failure> failuresOf(const std::string& call, unsigned nth) {
  std::vector<Fault::Failure> failures;
  const auto found = kWays.find(call);
  if (found == kWays.end()) throw std::logic_error("how " + call + "() fails is not known");
  const auto& [errors, results] = found->second;
  for (const int error : errors) {
    if (isFull() || error == errors[nth % errors.size()]) failures.push_back({error});
  }
  for (const long result : results) {
    if (isFull() || result == results[nth % results.size()]) failures.push_back({0, result});
  }
  return failures;
}

std::string whyHarmless(const Fault::InterceptedCall& failed, const Fault::Failure& failure) {
  for (const Harmless& entry : kHarmless) {
    if (failed.call == entry.call && startsWith(failed.target, entry.start) &&
        endsWith(failed.target, entry.end) &&
        (entry.error == 0 || entry.error == (failure.result ? kShortened : failure.error))) {
      return entry.why;
    }
  }
  return {};
}

std::string describe(const Fault::InterceptedCall& failed, const Fault::Failure& failure) {
  const std::string how = failure.result ? "result " + std::to_string(*failure.result)
                                         : std::string(strerrorname_np(failure.error));
  return failed.call + " " + how + " on '" + failed.target + "'";
}

}  // namespace Zorbe::Test::Sweep
