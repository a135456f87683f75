// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

namespace Zorbe::Test::Fuzz {

/// A file system with the directories "/d" and "/d/e", the file "/f" and "/n", a link that
/// leads nowhere.
class MadeUpDisk {
 public:
  enum class Links { followed, asTheyAre };

  MadeUpDisk();

  /// From now until the input's end stat, lstat, open, openat, mkdirat and fchmod work on this
  /// one, which has to live for as long.
  void takePlace();

  /// 0 for a directory, or for whatever is there when links are not followed; else the errno
  /// of what is not one.
  int look(const std::string& path, Links links) const;

  void add(const std::string& path, mode_t mode) { entries_[plain(path)] = S_IFDIR | mode; }

  /// The mode of each path.
  const std::map<std::string, mode_t>& entries() const { return entries_; }

  static std::vector<std::string> components(const std::string& path);

 private:
  static int stat(const char* path, struct stat* status);
  static int lstat(const char* path, struct stat* status);
  static int open(const char* path, int flags, mode_t mode);
  static int openAt(int fd, const char* name, int flags, mode_t mode);
  static int makeAt(int fd, const char* name, mode_t mode);
  static int changeMode(int fd, mode_t mode);

  int examine(const std::string& path, Links links, mode_t& mode) const;
  static std::string plain(const std::string& path);
  int makeDirectory(const std::string& path, mode_t mode);

  std::map<std::string, mode_t> entries_;
  std::map<int, std::string> opened_;  // the latest of each number
};

}  // namespace Zorbe::Test::Fuzz
