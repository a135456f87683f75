// SPDX-License-Identifier: MIT
#include "memory/file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace Zorbe::Table {

namespace {

// A FIFO under the name does not block the call, and a symbolic link is not followed.
constexpr int kOpenFlags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

std::string fdPath(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

bool lacksUnnamedFiles(int error) {
  return error == EOPNOTSUPP || error == EISDIR || error == EINVAL || error == ENOENT;
}

[[noreturn]] void failOwner(const Place& place, const std::string& path, uid_t found) {
  throw Error(ErrorCode::denied, place.table, "",
              path + " belongs to user " + std::to_string(found) + " and not to " +
                  std::to_string(*place.owner) + "; see Options::owner");
}

}  // namespace

std::optional<File> File::open(const Place& place, const std::string& name, Access access) {
  const std::string path = place.path(name);
  const int mode = access == Access::kRead ? O_RDONLY : O_RDWR;
  UniqueFd fd(::open(path.c_str(), mode | kOpenFlags));
  if (fd.get() < 0) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) return std::nullopt;
    if (error == ELOOP || error == EISDIR || error == ENXIO) {
      failCorrupt(place, path + " is not a regular file");
    }
    failCall(place, "open()", path, error);
  }
  File file(place, path, std::move(fd));
  const struct stat found = file.status();
  if (!S_ISREG(found.st_mode)) failCorrupt(place, path + " is not a regular file");
  if (place.owner && found.st_uid != *place.owner) failOwner(place, path, found.st_uid);
  return file;
}

std::optional<File> File::create(const Place& place, const std::string& name, mode_t mode) {
  const std::string path = place.path(name);
  UniqueFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | kOpenFlags, mode));
  if (fd.get() < 0) {
    const int error = errno;
    if (error == EEXIST) return std::nullopt;
    failCall(place, "open()", path, error);
  }
  File file(place, path, std::move(fd));
  file.setMode(mode);
  return file;
}

std::optional<File> File::createUnnamed(const Place& place, mode_t mode) {
  UniqueFd fd(::open(place.directory.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, mode));
  if (fd.get() < 0) {
    const int error = errno;
    if (lacksUnnamedFiles(error)) return std::nullopt;
    failCall(place, "open()", place.directory, error);
  }
  File file(place, place.directory, std::move(fd));
  file.hasName_ = false;
  file.setMode(mode);
  return file;
}

void File::setMode(mode_t mode) const {
  if (::fchmod(fd(), mode) == 0) return;
  const int error = errno;
  failCall(place_, "fchmod()", path_, error);
}

struct stat File::status() const {
  struct stat status {};
  if (::fstat(fd(), &status) != 0) {
    const int error = errno;
    failCall(place_, "fstat()", path_, error);
  }
  return status;
}

FileId File::id() const {
  const struct stat mine = status();
  return {mine.st_dev, mine.st_ino};
}

uint64_t File::allocated() const {
  constexpr uint64_t kBlock = 512;  // of st_blocks, on every file system
  return static_cast<uint64_t>(status().st_blocks) * kBlock;
}

void File::allocate(uint64_t from, uint64_t bytes) const {
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0) {
    const int error = errno;
    failCall(place_, "getrlimit()", path_, error);
  }
  // Beyond the limit the kernel sends a signal that ends the process.
  if (limit.rlim_cur != RLIM_INFINITY && bytes > limit.rlim_cur) {
    failCall(place_, "posix_fallocate()", path_, EFBIG);
  }
  int error = 0;
  do {
    error = ::posix_fallocate(fd(), static_cast<off_t>(from), static_cast<off_t>(bytes - from));
  } while (error == EINTR);
  if (error != 0) failCall(place_, "posix_fallocate()", path_, error);
}

bool File::tryLock() const {
  return tryLockAs(F_WRLCK);
}

bool File::tryLockShared() const {
  return tryLockAs(F_RDLCK);
}

bool File::tryLockAs(short type) const {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  if (::fcntl(fd(), F_OFD_SETLK, &lock) == 0) return true;
  const int error = errno;
  if (error == EAGAIN || error == EACCES) return false;
  failCall(place_, "fcntl(F_OFD_SETLK)", path_, error);
}

File File::duplicate() const {
  UniqueFd fd(::fcntl(this->fd(), F_DUPFD_CLOEXEC, 0));
  if (fd.get() < 0) {
    const int error = errno;
    failCall(place_, "fcntl(F_DUPFD_CLOEXEC)", path_, error);
  }
  return File(place_, path_, std::move(fd));
}

File File::reopenAs(const std::string& name) const {
  UniqueFd fd(::open(fdPath(this->fd()).c_str(), O_RDWR | O_CLOEXEC));
  if (fd.get() < 0) {
    const int error = errno;
    failCall(place_, "open()", path_, error);
  }
  return File(place_, place_.path(name), std::move(fd));
}

bool File::linkFrom(const char* source, const std::string& target, int flags) const {
  if (::linkat(AT_FDCWD, source, AT_FDCWD, target.c_str(), flags) == 0) return true;
  const int error = errno;
  if (error == EEXIST) return false;
  failCall(place_, "linkat()", target, error);
}

bool File::link(const std::string& name) {
  const std::string target = place_.path(name);
  const std::string source = hasName_ ? path_ : fdPath(fd());
  if (!linkFrom(source.c_str(), target, hasName_ ? 0 : AT_SYMLINK_FOLLOW)) return false;
  if (hasName_ && ::unlink(path_.c_str()) != 0) {
    const int error = errno;
    failCall(place_, "unlink()", path_, error);
  }
  path_ = target;
  hasName_ = true;
  return true;
}

void File::rename(const std::string& name) {
  const std::string target = place_.path(name);
  if (::rename(path_.c_str(), target.c_str()) != 0) {
    const int error = errno;
    failCall(place_, "rename()", target, error);
  }
  path_ = target;
}

bool isAt(const Place& place, const std::string& name, const FileId& id) {
  struct stat there {};
  if (::lstat(place.path(name).c_str(), &there) != 0) return false;
  return FileId{there.st_dev, there.st_ino} == id;
}

void removeFile(const Place& place, const std::string& name) {
  const std::string path = place.path(name);
  if (::unlink(path.c_str()) == 0) return;
  const int error = errno;
  if (error != ENOENT && error != ENOTDIR) failCall(place, "unlink()", path, error);
}

}  // namespace Zorbe::Table
