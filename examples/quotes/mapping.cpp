// SPDX-License-Identifier: MIT
#include "mapping.h"

#include <zorbe/exceptions.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "descriptor.h"

namespace Quotes {

namespace {

[[noreturn]] void fail(const char* call, const std::string& path, int error) {
  throw Brask::RuntimeException(std::string(call) + " " + path + ": " + std::strerror(error));
}

struct stat statusOf(int fd, const std::string& path) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) fail("fstat()", path, errno);
  return status;
}

}  // namespace

Mapping::Mapping(int fd, int protection, const std::string& path) {
  const struct stat status = statusOf(fd, path);
  size_ = static_cast<size_t>(status.st_size);
  device_ = status.st_dev;
  inode_ = status.st_ino;
  memory_ = ::mmap(nullptr, size_, protection, MAP_SHARED, fd, 0);
  if (memory_ == MAP_FAILED) fail("mmap()", path, errno);
}

Mapping Mapping::create(const std::string& path, size_t bytes) {
  const Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (file.get() < 0) fail("open()", path, errno);
  try {
    if (::fchmod(file.get(), 0666) != 0) fail("fchmod()", path, errno);
    const int error = ::posix_fallocate(file.get(), 0, static_cast<off_t>(bytes));
    if (error != 0) fail("posix_fallocate()", path, error);
    return Mapping(file.get(), PROT_READ | PROT_WRITE, path);
  } catch (...) {
    static_cast<void>(::unlink(path.c_str()));  // the first failure is the one to report
    throw;
  }
}

std::optional<Mapping> Mapping::open(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0 && errno == ENOENT) return std::nullopt;
  if (file.get() < 0) fail("open()", path, errno);
  if (statusOf(file.get(), path).st_size == 0) return std::nullopt;  // not whole yet
  return Mapping(file.get(), PROT_READ, path);
}

Mapping::Mapping(Mapping&& other) noexcept
    : memory_(std::exchange(other.memory_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      device_(other.device_),
      inode_(other.inode_) {}

Mapping& Mapping::operator=(Mapping&& other) noexcept {
  std::swap(memory_, other.memory_);
  std::swap(size_, other.size_);
  std::swap(device_, other.device_);
  std::swap(inode_, other.inode_);
  return *this;
}

Mapping::~Mapping() {
  if (memory_ != nullptr) static_cast<void>(::munmap(memory_, size_));
}

bool Mapping::isFile(const std::string& path) const {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return false;
  return status.st_dev == device_ && status.st_ino == inode_;
}

}  // namespace Quotes
