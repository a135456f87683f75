// SPDX-License-Identifier: MIT
#include "stress/step/watched_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Zorbe::Test {

WatchedFiles::WatchedFiles(const std::string& directory, const std::vector<std::string>& names)
    : files_(names.size()) {
  for (size_t i = 0; i < names.size(); ++i) files_[i].path = directory + "/" + names[i];
  static_cast<void>(haveChanged());
}

WatchedFiles::~WatchedFiles() {
  for (Watched& file : files_) map(file, 0, 0);
}

bool WatchedFiles::haveChanged() {
  bool changed = false;
  for (Watched& file : files_) changed = hasChanged(file) || changed;
  return changed;
}

bool WatchedFiles::hasChanged(Watched& file) {
  struct stat status = {};
  if (::stat(file.path.c_str(), &status) != 0) {
    EXPECT_EQ(errno, ENOENT) << file.path;
    status = {};
  }
  const auto length = static_cast<size_t>(status.st_size);
  const bool renamed = status.st_ino != file.inode || length != file.length;
  if (renamed) map(file, status.st_ino, length);
  if (length == 0 || std::memcmp(file.bytes, file.copy.data(), length) == 0) return renamed;
  std::memcpy(file.copy.data(), file.bytes, length);
  return true;
}

// The process that makes and removes files stands still meanwhile.
void WatchedFiles::map(Watched& file, ino_t inode, size_t length) {
  if (file.bytes != nullptr) {
    EXPECT_EQ(::munmap(const_cast<char*>(file.bytes), file.length), 0);
  }
  file.bytes = nullptr;
  file.inode = inode;
  file.length = length;
  file.copy.assign(length, 0);
  if (length == 0) return;
  const int fd = ::open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0) << file.path;
  void* bytes = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, fd, 0);
  EXPECT_EQ(::close(fd), 0);
  ASSERT_NE(bytes, MAP_FAILED);
  file.bytes = static_cast<const char*>(bytes);
}

}  // namespace Zorbe::Test
