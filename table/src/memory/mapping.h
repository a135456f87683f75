// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

#include "memory/file.h"

namespace Zorbe::Table {

/// How a table is mapped: see Options.
struct MappingHints {
  bool populate = false;   // MAP_POPULATE
  bool hugePages = false;  // MADV_HUGEPAGE
};

/// A file mapped into memory, shared with every process that maps it. May cover more address
/// space than the file is long: what lies beyond the file's end must not be touched until the
/// file has grown. Not inherited by fork(2) when it may be written.
class Mapping {
 public:
  /// Maps `bytes`, and up to `reserve` where the limit of address space allows it.
  Mapping(const Place& place, const File& file, Access access, uint64_t bytes, uint64_t reserve,
          MappingHints hints = {});
  Mapping(Mapping&& other) noexcept;
  Mapping& operator=(Mapping&& other) = delete;
  ~Mapping();

  /// Bytes of address space.
  uint64_t size() const { return size_; }

  /// Makes it cover `bytes` at least. The memory may move. Only for a mapping with one user.
  void extend(const Place& place, uint64_t bytes);

  template <class T>
  T* at(uint64_t offset) const {
    return reinterpret_cast<T*>(static_cast<char*>(memory_) + offset);
  }

 private:
  void* memory_ = nullptr;
  size_t size_ = 0;
};

}  // namespace Zorbe::Table
