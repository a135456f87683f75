// SPDX-License-Identifier: MIT
#include "memory/mapping.h"

#include <sys/mman.h>

#include <cerrno>
#include <limits>
#include <utility>

namespace Zorbe::Table {

namespace {

size_t lengthOf(const Place& place, const std::string& path, uint64_t bytes) {
  if (bytes > std::numeric_limits<size_t>::max() / 2) failCall(place, "mmap()", path, ENOMEM);
  return static_cast<size_t>(bytes);
}

void* map(const File& file, Access access, size_t bytes, MappingHints hints) {
  const int protection = access == Access::kRead ? PROT_READ : PROT_READ | PROT_WRITE;
  const int flags = MAP_SHARED | MAP_NORESERVE | (hints.populate ? MAP_POPULATE : 0);
  return ::mmap(nullptr, bytes, protection, flags, file.fd(), 0);
}

}  // namespace

Mapping::Mapping(const Place& place, const File& file, Access access, uint64_t bytes,
                 uint64_t reserve, MappingHints hints) {
  memory_ = MAP_FAILED;
  // Pages of what follows `bytes` in the file must not be populated: there may be any number.
  if (!hints.populate && reserve > bytes && reserve <= std::numeric_limits<size_t>::max() / 2) {
    size_ = static_cast<size_t>(reserve);
    memory_ = map(file, access, size_, hints);
  }
  if (memory_ == MAP_FAILED) {
    size_ = lengthOf(place, file.path(), bytes);
    memory_ = map(file, access, size_, hints);
  }
  if (memory_ == MAP_FAILED) {
    const int error = errno;
    failCall(place, "mmap()", file.path(), error);
  }
  // Failures are ignored: huge pages are optional, and a child process that inherits the mapping
  // is refused by ForkMember as well.
  if (hints.hugePages) static_cast<void>(::madvise(memory_, size_, MADV_HUGEPAGE));
  if (access == Access::kWrite) static_cast<void>(::madvise(memory_, size_, MADV_DONTFORK));
}

Mapping::Mapping(Mapping&& other) noexcept
    : memory_(std::exchange(other.memory_, nullptr)), size_(std::exchange(other.size_, 0)) {}

Mapping::~Mapping() {
  if (memory_ != nullptr) static_cast<void>(::munmap(memory_, size_));  // cannot fail for our own
}

void Mapping::extend(const Place& place, uint64_t bytes) {
  if (bytes <= size_) return;
  const size_t length = lengthOf(place, place.directory, bytes);
  void* moved = ::mremap(memory_, size_, length, MREMAP_MAYMOVE);
  if (moved == MAP_FAILED) {
    const int error = errno;
    failCall(place, "mremap()", place.directory, error);
  }
  memory_ = moved;
  size_ = length;
}

}  // namespace Zorbe::Table
