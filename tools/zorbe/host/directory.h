// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>
#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zorbe::Tool {

/// An entry of a directory, as lstat(2) shows it.
struct Entry {
  std::string name;
  bool ours = false;  ///< has the name of a table's file
  struct stat status = {};

  bool isFile() const { return S_ISREG(status.st_mode); }
  bool isDirectory() const { return S_ISDIR(status.st_mode); }
  unsigned mode() const { return status.st_mode & 07777U; }
  uint64_t size() const { return static_cast<uint64_t>(status.st_size); }

  /// Bytes of storage, which for a sparse file are less than its size.
  uint64_t storage() const { return static_cast<uint64_t>(status.st_blocks) * 512; }

  /// The type of the entry as a word or two.
  const char* kind() const;
};

/// Device and inode of a directory: the same for every path that leads to it.
using Identity = std::pair<dev_t, ino_t>;

/// None when there is no such directory, or it cannot be examined.
std::optional<Identity> identityOf(const std::string& path);

/// A directory and its entries, sorted by name.
struct Listing {
  bool present = false;  ///< the path is a directory, or a symbolic link to one
  bool link = false;     ///< the path itself is a symbolic link
  int error = 0;  ///< errno of what could not be examined; 0 when everything was, or the path does
                  ///< not exist
  unsigned mode = 0;
  std::optional<Identity> identity;
  std::vector<Entry> entries;

  const Entry* find(const std::string& name) const;
};

/// The errno of looking for something in a directory: 0 when it can be searched or does not exist.
int whyUnsearchable(const std::string& path);

/// Errors of the file system are in the result; they never throw.
Listing readListing(Brask::Platform::DebugHandler& handler, const std::string& path);

}  // namespace Zorbe::Tool
