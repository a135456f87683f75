// SPDX-License-Identifier: MIT
//
// A real table whose files the fuzzer damages. What is damaged passes the checks of magic, boot and
// incarnation, because everything else in the files stays as a writer has left it.
#pragma once

#include "stress/fuzz/input.h"
#include "support/test_root.h"

#include "memory/table_reader.h"
#include "memory/table_writer.h"

#include <zorbe/exceptions.h>

#include <array>
#include <memory>
#include <string>

namespace Zorbe::Test::Fuzz {

class HostileTable {
 public:
  static constexpr uint64_t kKeys = 48;  // the table holds most of the keys below it

  /// What may be done to the files.
  enum class Damage {
    kWords,     ///< single words, as under a mapping
    kAnything,  ///< also their lengths and whole contents
  };

  HostileTable();

  const Table::WriterOptions& options() const { return options_; }
  std::unique_ptr<Table::TableReader> openReader() const;

  /// The files as new ones, as they were before the last changes.
  void restoreEarlier() const { restore(earlier_); }

  /// The files as new ones: with changes that were published, and with two that were not.
  void restoreLater() const { restore(later_); }

  /// Makes the earlier table the later one, in place: what a follower then finds.
  void advance() const;

  /// Damages up to 24 places.
  void damage(Input& input, Damage kind) const;

  /// Kilobytes that the files occupy.
  uint64_t kilobytes() const;

 private:
  static constexpr size_t kFiles = 4;
  using Contents = std::array<std::string, kFiles>;

  std::string path(size_t file) const;
  Contents read() const;
  void restore(const Contents& contents) const;
  void overwriteWord(Input& input, size_t file) const;
  void change(Input& input, size_t file, unsigned action) const;

  TestRoot root_;
  Table::WriterOptions options_;
  Contents earlier_;
  Contents later_;
};

/// The one of a fuzzer.
inline const HostileTable& table() {
  static const HostileTable kOnly;
  return kOnly;
}

/// Reads or writes a damaged table: it may be refused, and nothing else may be thrown.
template <class Act>
void allowErrors(Act act) {
  try {
    act();
  } catch (const CorruptionDetectedException&) {
  } catch (const Table::Error&) {
  }
}

}  // namespace Zorbe::Test::Fuzz
