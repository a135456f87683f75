// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Bench {

/// The slots of a table of Records under keys of 8 bytes, mapped once more.
class MappedSlots {
 public:
  MappedSlots(const std::string& root, uint64_t slots);
  ~MappedSlots();
  MappedSlots(const MappedSlots&) = delete;
  MappedSlots& operator=(const MappedSlots&) = delete;

  uint64_t guard(uint64_t slot) const;
  uint64_t key(uint64_t slot) const;

  /// The bytes of the record.
  const char* value(uint64_t slot) const;

 private:
  const char* at(uint64_t slot) const;

  void* memory_;
  size_t bytes_;
};

}  // namespace Bench
