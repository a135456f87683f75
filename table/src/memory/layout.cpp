// SPDX-License-Identifier: MIT
#include "memory/layout.h"

#include <cstring>

namespace Zorbe::Table {

namespace {

constexpr uint64_t roundUp(uint64_t value, uint64_t unit) {
  return (value + unit - 1) / unit * unit;
}

}  // namespace

uint64_t magicOf(const char (&text)[9]) {
  uint64_t magic = 0;
  std::memcpy(&magic, text, sizeof magic);
  return magic;
}

Geometry::Geometry(uint32_t key, uint32_t value)
    : keyBytes(key), valueBytes(value), keyWords(static_cast<uint32_t>(roundUp(key, 8) / 8)) {
  recordWords = 2 + keyWords + static_cast<uint32_t>(roundUp(value, 8) / 8);
  slotBytes = static_cast<uint32_t>(roundUp(8 * (1 + uint64_t{recordWords}), kLine));
  const uint64_t imageBytes = offsetof(Image, words) + 8 * uint64_t{recordWords};
  slotsOffset = roundUp(imageOffset() + imageBytes, kPage);
}

}  // namespace Zorbe::Table
