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

  /// From now until the input's end stat, lstat, mkdir and chmod work on this one, which has
  /// to live for as long.
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
  static int mkdir(const char* path, mode_t mode);
  static int chmod(const char* path, mode_t mode);

  int examine(const std::string& path, Links links, mode_t& mode) const;
  static std::string plain(const std::string& path);

  std::map<std::string, mode_t> entries_;
};

}  // namespace Zorbe::Test::Fuzz
