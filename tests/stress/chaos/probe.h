// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table.h>

#include <memory>
#include <optional>
#include <string>

#include "stress/chaos/shared_state.h"

namespace Zorbe::Test::Chaos {

/// Reads the table as a program that only looks at it, never follows it, and compares it with
/// what the writers have noted: no change that was finished may be missing.
class Probe {
 public:
  Probe(SharedState& shared, std::string directory);

  /// Looks at the table that is in place now. False when there is none, or not yet the one that
  /// holds the last change.
  bool look();

  /// Why look() has returned false; empty when it has not.
  const std::string& lack() const { return lack_; }

  const Table::Info& info() const { return info_; }

  /// Of all its records. Throws Failure for a torn one.
  uint64_t digest() const { return digest_; }

  /// The status that the writer publishes; nothing without a table.
  std::optional<Table::Status> status();

  /// Throws Failure unless each key is as its last change left it. Nothing is written meanwhile.
  void verify();

 private:
  using Reader = Table::Reader<Key, Record>;

  bool isInPlace() const;

  SharedState& shared_;
  std::string directory_;
  std::unique_ptr<Reader> reader_;
  std::string lack_;
  Table::Info info_;
  uint64_t digest_ = 0;
};

}  // namespace Zorbe::Test::Chaos
