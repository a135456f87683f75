// SPDX-License-Identifier: MIT
//
// The table of the guide's programs: one number, and the id of the incarnation.
#pragma once

#include <zorbe/root_path.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/// One incarnation of the table, mapped from the file "slots" of its root directory.
class NumberTable {
 public:
  /// For readers. Nothing while there is no complete table: try again later. Throws
  /// Zorbe::CorruptionDetectedException when the table was replaced meanwhile, and
  /// Brask::RuntimeException when the system refuses.
  static std::optional<NumberTable> open(Brask::Platform::DebugHandler& handler,
                                         const Zorbe::RootPath& root);

  /// For the process that holds the writer lock. The table that is there, or, without one and
  /// for `startNew`, a new incarnation. Throws as above.
  static NumberTable openForWriting(Brask::Platform::DebugHandler& handler,
                                    const Zorbe::RootPath& root, bool startNew);

  uint64_t number() const { return memory_->number; }
  void setNumber(uint64_t number) { memory_->number = number; }
  unsigned id() const { return memory_->id; }

 private:
  struct Memory {
    std::atomic<uint64_t> number;
    uint32_t id;
  };
  struct Unmap {
    void operator()(Memory* memory) const;
  };

  explicit NumberTable(Memory* memory) : memory_(memory) {}
  static std::optional<NumberTable> map(const std::string& path, bool writable);
  static NumberTable create(Brask::Platform::DebugHandler& handler, const Zorbe::RootPath& root);

  std::unique_ptr<Memory, Unmap> memory_;
};
