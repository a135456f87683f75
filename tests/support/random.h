// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace Zorbe::Test {

/// The same numbers from the same seed on every machine.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    uint64_t z = state_ += 0x9e3779b97f4a7c15;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
    z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
    return z ^ (z >> 31);
  }

  /// From 0 up to, and without, `limit`.
  unsigned below(std::size_t limit) { return static_cast<unsigned>(next() % limit); }

  bool percent(unsigned chance) { return below(100) < chance; }

 private:
  uint64_t state_;
};

}  // namespace Zorbe::Test
