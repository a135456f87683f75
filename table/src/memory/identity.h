// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "memory/layout.h"
#include "memory/place.h"

namespace Zorbe::Table {

/// What the files of one incarnation of a table have in common.
struct Identity {
  uint64_t incarnation = 0;  // random
  uint64_t bootLow = 0;      // of the kernel's boot id
  uint64_t bootHigh = 0;

  bool isSameBoot(const Identity& other) const {
    return bootLow == other.bootLow && bootHigh == other.bootHigh;
  }
};

/// This boot, and no incarnation. Throws Error when the kernel's boot id cannot be read.
Identity currentBoot(const Place& place);

/// A number that no other table or index has.
uint64_t randomNumber(const Place& place);

/// The identity that a header holds.
Identity identityIn(const Prologue& prologue);

/// Stores everything but the magic.
void fillPrologue(Prologue& prologue, const Identity& identity, uint64_t generation, uint64_t size);

/// Whether the file is complete. Throws Zorbe::CorruptionDetectedException when it is something
/// else, Error when it is of another version or byte order.
bool isComplete(const Place& place, const std::string& path, const Prologue& prologue,
                const char (&magic)[9]);

}  // namespace Zorbe::Table
