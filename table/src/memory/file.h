// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "foundation/unique_fd.h"
#include "memory/place.h"

namespace Zorbe::Table {

enum class Access { kRead, kWrite };

/// Which file it is, under any name.
struct FileId {
  dev_t device = 0;
  ino_t inode = 0;

  friend bool operator==(const FileId& a, const FileId& b) {
    return a.device == b.device && a.inode == b.inode;
  }
};

/// Whether the name is the name of this file.
bool isAt(const Place& place, const std::string& name, const FileId& id);

/// One open file of a table. Owns the descriptor. Failing system calls throw Error.
class File {
 public:
  /// Opens an existing file: nothing when there is none. Throws
  /// Zorbe::CorruptionDetectedException for what is no regular file; symbolic links are not
  /// followed. Throws Error for a file of another user than `place.owner`.
  static std::optional<File> open(const Place& place, const std::string& name, Access access);

  /// Makes a new, empty file, with `mode` regardless of the umask. Nothing when the name is taken.
  static std::optional<File> create(const Place& place, const std::string& name, mode_t mode);

  /// The same without a name. Nothing where the file system has no such files.
  static std::optional<File> createUnnamed(const Place& place, mode_t mode);

  int fd() const { return fd_.get(); }
  const std::string& path() const { return path_; }

  /// What fstat(2) says.
  struct stat status() const;
  FileId id() const;

  /// Bytes that have room on the disk. A table's file has all of its room allocated.
  uint64_t allocated() const;

  /// Whether that is less than half of `bytes`: such a file was not made by a writer, and reading
  /// it would fill the memory.
  bool isMostlyHoles(uint64_t bytes) const { return allocated() < bytes / 2; }

  /// Gives the file room from `from` up to `bytes`, and that length, when it is shorter. A full
  /// disk and the limit of file sizes are reported here and not by a signal later.
  void allocate(uint64_t from, uint64_t bytes) const;

  /// Takes the exclusive lock of this open file description without waiting; false when
  /// another process, or a reader that locks the file, has it. Closing releases it.
  bool tryLock() const;

  /// The same with a shared lock, which a descriptor for reading can take.
  bool tryLockShared() const;

  /// Another descriptor of the same open file description.
  File duplicate() const;

  /// Another open file description of the same file, whose path is the name that the file is
  /// going to have.
  File reopenAs(const std::string& name) const;

  /// Gives the file this name instead of the one that it has, if any; false when the name is
  /// taken.
  bool link(const std::string& name);

  /// Renames, replacing what has that name.
  void rename(const std::string& name);

  bool isAt(const std::string& name) const { return Table::isAt(place_, name, id()); }

 private:
  File(const Place& place, const std::string& path, UniqueFd fd)
      : place_(place), path_(path), fd_(std::move(fd)) {}
  void setMode(mode_t mode) const;
  bool tryLockAs(short type) const;
  bool linkFrom(const char* source, const std::string& target, int flags) const;

  Place place_;
  std::string path_;
  bool hasName_ = true;
  UniqueFd fd_;
};

/// Removes a file; a missing one counts as removed.
void removeFile(const Place& place, const std::string& name);

}  // namespace Zorbe::Table
