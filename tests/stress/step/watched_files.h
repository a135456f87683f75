// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// Files, whether they are there or not, compared with what they were before: name, length, and
/// each byte, through mappings, so that a store of another process to its own mapping shows at
/// once.
class WatchedFiles {
 public:
  WatchedFiles(const std::string& directory, const std::vector<std::string>& names);
  WatchedFiles(const WatchedFiles&) = delete;
  WatchedFiles& operator=(const WatchedFiles&) = delete;
  ~WatchedFiles();

  /// Whether anything is different from the last call.
  bool haveChanged();

 private:
  struct Watched {
    std::string path;
    ino_t inode = 0;  // 0: there is none
    size_t length = 0;
    const char* bytes = nullptr;  // of which there may be none
    std::vector<char> copy;
  };

  static bool hasChanged(Watched& file);
  static void map(Watched& file, ino_t inode, size_t length);

  std::vector<Watched> files_;
};

}  // namespace Zorbe::Test
