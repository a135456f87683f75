// SPDX-License-Identifier: MIT
//
// A small file system at a directory, which a test fills, or mounts read-only.
#pragma once

#include <functional>
#include <string>

namespace Zorbe::Test {

class SmallDisk {
 public:
  explicit SmallDisk(std::string path);

  /// Runs `body` in a child process, with this disk mounted in a mount namespace of its own.
  /// `options` are those of a tmpfs, such as "size=64k". Skips the test where this user cannot
  /// mount a file system. The functions below belong into `body`.
  void run(const char* options, const std::function<void()>& body) const;

  void setOptions(const char* options) const;  ///< such as a larger size
  void makeReadOnly() const;                   ///< fails while a file is open for writing
  void makeWritable() const;

  /// The disk is read-only for this process from here on, and for others what it was.
  void makeReadOnlyHere() const;

  /// Fills the disk with a file, up to its last page.
  void fill() const;
  /// Makes that file shorter by a page.
  void freePage() const;
  /// Removes it.
  void relieve() const;

 private:
  bool mount(const char* options) const;
  void remount(unsigned long flags, const char* options) const;
  std::string filler() const { return path_ + "/filler"; }

  std::string path_;
};

}  // namespace Zorbe::Test
