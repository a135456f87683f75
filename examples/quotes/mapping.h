// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <sys/types.h>

namespace Quotes {

/// A file mapped whole into memory and shared with every process that maps it. The
/// mapping outlives the file's name: after unlink(2) the memory is still there.
///
/// Errors of the system are thrown as Brask::RuntimeException.
class Mapping {
 public:
  /// Makes a new file of `bytes` zero bytes, open to every user. There must be none
  /// of that name. Its room on the disk is taken at once: a full disk is an error
  /// here and not a SIGBUS later. After an error there is no file.
  static Mapping create(const std::string& path, size_t bytes);

  /// Maps an existing file for reading; nothing when there is none or it is empty.
  static std::optional<Mapping> open(const std::string& path);

  Mapping(Mapping&& other) noexcept;
  Mapping& operator=(Mapping&& other) noexcept;
  ~Mapping();

  size_t size() const { return size_; }

  /// True when `path` still names the mapped file, and not another one or none.
  bool isFile(const std::string& path) const;

  /// The object at `offset`; the caller has made sure that it lies inside.
  template <class T>
  T* at(size_t offset) const {
    return reinterpret_cast<T*>(static_cast<char*>(memory_) + offset);
  }

 private:
  Mapping(int fd, int protection, const std::string& path);

  void* memory_ = nullptr;
  size_t size_ = 0;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

}  // namespace Quotes
