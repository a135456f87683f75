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
  /// False: it was overrun and has to scan.
  bool pass();

  /// All that it remembers, and `state` of the caller.
  void rememberAll(uint64_t state);

 private:
  static constexpr size_t kUnseen = ~size_t{0};
  using Versions = std::array<size_t, kKeys>;

  const File& mapLog(Value generation);
  bool overrun(Value published, const File& log) const;
  bool reset() const;
  bool visit(Value n, Value published, const File& log);
  void report(const Record& record);
  void checkKnown() const;

  Value position_ = 0;
  Versions known_ = {};                    // the version of each key
  Versions before_ = {};                   // the same before the scan
  std::array<bool, kKeys> reported_ = {};  // in this pass
  bool inPass_ = false;
};

}  // namespace Zorbe::Model
