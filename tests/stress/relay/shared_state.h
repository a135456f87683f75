// SPDX-License-Identifier: MIT
//
// What the writer and the readers report, in memory that all processes share: it outlives each of
// them.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>

#include "stress/relay/record.h"

namespace Zorbe::Test::RelayChaos {

constexpr unsigned kMirrors = 3;

/// A reader of a mirrored table. Written by that process.
struct FollowerState {
  std::array<std::atomic<uint64_t>, kKeys> keys;  ///< KeyState of each
  std::atomic<uint64_t> digest;                   ///< of the reader's own copy
  std::atomic<uint64_t> changes;                  ///< that it has followed
  std::atomic<bool> isWrong;                      ///< `what` says why
  std::array<char, 256> what;

  /// Of a reader that begins again.
  void forget() {
    for (auto& key : keys) key = 0;
  }

  /// Only the first one is kept.
  void report(const std::string& text) {
    if (isWrong) return;
    std::strncpy(what.data(), text.c_str(), what.size() - 1);
    isWrong = true;
  }
};

struct SharedState {
  std::atomic<uint64_t> changes;  ///< numbers them, over all writers
  std::atomic<bool> isWriting;    ///< the writer should make changes
  std::atomic<bool> isAtRest;     ///< it makes none, and has published all
  std::array<FollowerState, kMirrors> followers;
};

}  // namespace Zorbe::Test::RelayChaos
