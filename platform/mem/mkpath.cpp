// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <mem/mkpath.h>
#include <poll.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "brask/linux/owned_fd.h"

namespace Mem {
namespace {

using Brask::Linux::OwnedFd;

// How often to begin again when other processes make or remove parts of the same path.
constexpr unsigned kAttempts = 1000;

// How an attempt ends. After kFailed `errno` holds the reason.
enum class Step { kDone, kFailed, kBeginAgain };

enum class Found { kDirectory, kNothing, kFailure };

Step fail(int error) {
  errno = error;
  return Step::kFailed;
}

Found look(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return errno == ENOENT ? Found::kNothing : Found::kFailure;
  if (S_ISDIR(status.st_mode)) return Found::kDirectory;
  errno = ENOTDIR;
  return Found::kFailure;
}

// Of a name that mkdir found taken and stat did not find: a link that leads nowhere is
// in the way, anything else has been removed in between.
Step explainTaken(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0) {
    return S_ISLNK(status.st_mode) ? fail(ENOTDIR) : Step::kBeginAgain;
  }
  return errno == ENOENT ? Step::kBeginAgain : Step::kFailed;
}

// A mkdir(2) that fails is no failure when another process has made the directory.
Step afterFailedMkdir(const std::string& path, int error) {
  const Found found = look(path);
  if (found == Found::kDirectory) return Step::kDone;
  if (error == EEXIST) return found == Found::kNothing ? explainTaken(path) : Step::kFailed;
  errno = error;
  return error == ENOENT ? Step::kBeginAgain : Step::kFailed;
}

// The new directory may have been removed and replaced. Its replacement (a link, a file, another
// user's directory) is not changed: the next attempt looks at it.
Step afterFailedOpen(int error) {
  const bool replaced = error == ENOENT || error == ENOTDIR || error == ELOOP;
  errno = error;
  return replaced ? Step::kBeginAgain : Step::kFailed;
}

Step afterFailedChmod(int fd, int error) {
  struct stat status {};
  const bool replaced = error == EPERM && fstat(fd, &status) == 0 && status.st_uid != geteuid();
  errno = error;
  return replaced ? Step::kBeginAgain : Step::kFailed;
}

// The umask may have removed the right to open the directory. The C library then changes it by
// its name, without following links; it needs /proc for that.
Step changeClosed(int parent, const char* name, mode_t mode) {
  if (fchmodat(parent, name, mode, AT_SYMLINK_NOFOLLOW) == 0) return Step::kDone;
  const bool replaced = errno == ENOENT || errno == EPERM;
  return replaced ? Step::kBeginAgain : Step::kFailed;
}

Step changeMode(int parent, const char* name, mode_t mode) {
  const OwnedFd made(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (made.get() < 0 && errno == EACCES) return changeClosed(parent, name, mode);
  if (made.get() < 0) return afterFailedOpen(errno);
  if (fchmod(made.get(), mode) != 0) return afterFailedChmod(made.get(), errno);
  return Step::kDone;
}

// Holds the parent open: it stays the same directory, even if its path leads elsewhere later.
Step make(const std::string& path, mode_t mode) {
  const size_t slash = path.rfind('/');
  const std::string parentPath = slash == path.npos ? "." : path.substr(0, slash + 1);
  const std::string name = path.substr(slash + 1);
  const OwnedFd parent(open(parentPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (parent.get() < 0) return afterFailedMkdir(path, errno);
  if (mkdirat(parent.get(), name.c_str(), mode) != 0) return afterFailedMkdir(path, errno);
  return changeMode(parent.get(), name.c_str(), mode);
}

// The path up to the end of each of its components, from the first to the whole.
std::vector<std::string> prefixes(const std::string& path) {
  std::vector<std::string> found;
  size_t end = 0;
  for (;;) {
    const size_t begin = path.find_first_not_of('/', end);
    if (begin == path.npos) return found;
    end = path.find('/', begin);
    found.push_back(path.substr(0, end));
    if (end == path.npos) return found;
  }
}

// Finds the lowest existing directory before it makes any: mkdir(2) on a directory that exists
// need not fail with EEXIST (a read-only file system, a parent of another user).
Step attempt(const std::vector<std::string>& parts, mode_t mode) {
  size_t missing = parts.size();
  while (missing > 0) {
    const Found found = look(parts[missing - 1]);
    if (found == Found::kFailure) return Step::kFailed;
    if (found == Found::kDirectory) break;
    --missing;
  }
  for (; missing < parts.size(); ++missing) {
    const Step step = make(parts[missing], mode);
    if (step != Step::kDone) return step;
  }
  return Step::kDone;
}

// A directory that another process makes may be closed to this one until its chmod(2), which
// follows its mkdir(2) at once. One that has not changed for longer stays closed.
bool mayOpenSoon(const std::vector<std::string>& parts) {
  struct stat status {};
  auto part = parts.rbegin();
  while (part != parts.rend() && stat(part->c_str(), &status) != 0) ++part;
  timespec now{};
  if (part == parts.rend() || clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
  return std::abs(now.tv_sec - status.st_ctim.tv_sec) <= 1;
}

// True when the attempt that ended with `error` is to be repeated, now.
bool beginAgain(Step step, int error, const std::vector<std::string>& parts) {
  if (step == Step::kBeginAgain) return sched_yield() == 0;
  if (error != EACCES || !mayOpenSoon(parts)) return false;
  constexpr int kPauseMilliseconds = 1;
  return poll(nullptr, 0, kPauseMilliseconds) == 0 || errno == EINTR;
}

}  // namespace

int mkpath(const std::string& path, unsigned mode) {
  if (path.empty()) return errno = ENOENT, -1;
  if (path.find('\0') != path.npos) return errno = EINVAL, -1;
  const auto parts = prefixes(path);
  for (unsigned attempts = 1;; ++attempts) {
    const Step step = attempt(parts, static_cast<mode_t>(mode));
    if (step == Step::kDone) return 0;
    const int error = errno;
    if (attempts == kAttempts || !beginAgain(step, error, parts)) return errno = error, -1;
  }
}

}  // namespace Mem
