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

namespace Mem {
namespace {

// How often to begin again when others make or remove parts of the same path.
constexpr unsigned kAttempts = 1000;

// What ends an attempt: `errno` is final, or begin again.
enum class Step { done, failed, beginAgain };

enum class Found { directory, nothing, failure };

Step fail(int error) {
  errno = error;
  return Step::failed;
}

Found look(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return errno == ENOENT ? Found::nothing : Found::failure;
  if (S_ISDIR(status.st_mode)) return Found::directory;
  errno = ENOTDIR;
  return Found::failure;
}

// Of a name that mkdir found taken and stat did not find: a link that leads nowhere is
// in the way, anything else has been removed in between.
Step explainTaken(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0) {
    return S_ISLNK(status.st_mode) ? fail(ENOTDIR) : Step::beginAgain;
  }
  return errno == ENOENT ? Step::beginAgain : Step::failed;
}

// A directory that cannot be had is no failure when somebody else has made it.
Step afterFailedMkdir(const std::string& path, int error) {
  const Found found = look(path);
  if (found == Found::directory) return Step::done;
  if (error == EEXIST) return found == Found::nothing ? explainTaken(path) : Step::failed;
  errno = error;
  return error == ENOENT ? Step::beginAgain : Step::failed;
}

// Closes what it is given and leaves errno alone.
class Directory {
 public:
  explicit Directory(int fd) : fd_(fd) {}
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  ~Directory() {
    const int error = errno;
    if (fd_ >= 0) static_cast<void>(close(fd_));
    errno = error;
  }

  int fd() const { return fd_; }

 private:
  int fd_;
};

// Ours may have been removed since we made it. What is there instead is not for us to change,
// be it a link, a file, or another user's directory: the next attempt looks at it.
Step afterFailedOpen(int error) {
  const bool replaced = error == ENOENT || error == ENOTDIR || error == ELOOP;
  errno = error;
  return replaced ? Step::beginAgain : Step::failed;
}

Step afterFailedChmod(int fd, int error) {
  struct stat status {};
  const bool replaced = error == EPERM && fstat(fd, &status) == 0 && status.st_uid != geteuid();
  errno = error;
  return replaced ? Step::beginAgain : Step::failed;
}

// Where the umask has taken away the right to open it, the C library changes it by its name,
// which it does not follow either, but for which it needs /proc.
Step changeClosed(int parent, const char* name, mode_t mode) {
  if (fchmodat(parent, name, mode, AT_SYMLINK_NOFOLLOW) == 0) return Step::done;
  const bool replaced = errno == ENOENT || errno == EPERM;
  return replaced ? Step::beginAgain : Step::failed;
}

Step changeMode(int parent, const char* name, mode_t mode) {
  const Directory made(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (made.fd() < 0 && errno == EACCES) return changeClosed(parent, name, mode);
  if (made.fd() < 0) return afterFailedOpen(errno);
  if (fchmod(made.fd(), mode) != 0) return afterFailedChmod(made.fd(), errno);
  return Step::done;
}

// The parent stays the same directory, even if its path leads elsewhere later.
Step make(const std::string& path, mode_t mode) {
  const size_t slash = path.rfind('/');
  const std::string parentPath = slash == path.npos ? "." : path.substr(0, slash + 1);
  const std::string name = path.substr(slash + 1);
  const Directory parent(open(parentPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (parent.fd() < 0) return afterFailedMkdir(path, errno);
  if (mkdirat(parent.fd(), name.c_str(), mode) != 0) return afterFailedMkdir(path, errno);
  return changeMode(parent.fd(), name.c_str(), mode);
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

// Looks upwards for what is there before it makes anything: mkdir on a directory that
// exists need not say EEXIST (a read-only file system, a parent of somebody else's).
Step attempt(const std::vector<std::string>& parts, mode_t mode) {
  size_t missing = parts.size();
  while (missing > 0) {
    const Found found = look(parts[missing - 1]);
    if (found == Found::failure) return Step::failed;
    if (found == Found::directory) break;
    --missing;
  }
  for (; missing < parts.size(); ++missing) {
    const Step step = make(parts[missing], mode);
    if (step != Step::done) return step;
  }
  return Step::done;
}

// Another maker's directory may be closed to us until its chmod, which follows its mkdir
// at once. One that has not changed for longer is closed for good.
bool mayOpenSoon(const std::vector<std::string>& parts) {
  struct stat status {};
  auto part = parts.rbegin();
  while (part != parts.rend() && stat(part->c_str(), &status) != 0) ++part;
  timespec now{};
  if (part == parts.rend() || clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
  return std::abs(now.tv_sec - status.st_ctim.tv_sec) <= 1;
}

// True when the attempt that ended with `error` is worth repeating, which is to be now.
bool beginAgain(Step step, int error, const std::vector<std::string>& parts) {
  if (step == Step::beginAgain) return sched_yield() == 0;
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
    if (step == Step::done) return 0;
    const int error = errno;
    if (attempts == kAttempts || !beginAgain(step, error, parts)) return errno = error, -1;
  }
}

}  // namespace Mem
