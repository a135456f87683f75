// SPDX-License-Identifier: MIT
//
// A reader that follows the change log: passes over what was published since the last one, and a
// scan when it was overrun.
#pragma once

#include <array>

#include "reader.h"

namespace Zorbe::Model {

class Follower : public Reader {
 public:
  using Reader::Reader;

  /// Knows what was published when `length` stores had been made, and nothing else.
  void start(int length);
  /// Knows nothing; visits all slots.
  void scan();
  /// The same, but after each slot it passes over what has changed in those that it has visited.
  /// False: it was overrun and has to begin again.
  bool scanInSlices();
  /// False: it was overrun and has to scan.
  bool pass();

  /// What the caller will do with it after this is decided by `stage`.
  void enter(uint64_t stage);

 private:
  static constexpr size_t kUnseen = ~size_t{0};
  using Versions = std::array<size_t, kKeys>;

  const File& mapLog(Value generation);
  bool overrun(Value published, const File& log) const;
  bool reset() const;
  void rememberAll(uint64_t state);
  void beginScan();
  void visitSlot(Value slot);
  bool passBelow(Value slots);
  bool visit(Value n, Value published, const File& log, Value slots);
  void report(const Record& record);
  void checkKnown() const;

  uint64_t stage_ = 0;
  Value position_ = 0;
  Versions known_ = {};                    // the version of each key
  Versions before_ = {};                   // the same before the scan
  std::array<bool, kKeys> reported_ = {};  // in this pass
  bool inPass_ = false;
};

}  // namespace Zorbe::Model
