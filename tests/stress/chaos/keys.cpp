// SPDX-License-Identifier: MIT
#include "stress/chaos/keys.h"

#include <zorbe/fenix_file.h>

#include <iostream>
#include <utility>

#include "stress/chaos/processes.h"

namespace Zorbe::Test::Chaos {

Keys::Keys(Board& board, const std::string& table)
    : board_(board), log_(std::cerr, -1), root_(log_, table, false) {}

bool Keys::areInPlace(uint32_t fenix) {
  table_ = Quotes::TableReader::open(root_);
  return table_ && table_->fenix() == fenix && FenixFile::read(log_, root_.path) == fenix;
}

void Keys::verify(bool mayBeLost) {
  for (size_t key = 0; key < kKeys; ++key) {
    const auto quote = table_.value().find("S" + std::to_string(key));
    verifyKey(key, quote ? static_cast<uint64_t>(quote->price) : 0, mayBeLost);
  }
}

void Keys::verifyKey(size_t key, uint64_t stored, bool mayBeLost) {
  const uint64_t published = board_.published[key];
  if (mayBeLost) {
    board_.published[key] = stored;
  } else if (stored < published) {
    throw Failure("key S" + std::to_string(key) + " was published as " + std::to_string(published) +
                  " and the table has " + (stored == 0 ? "none" : std::to_string(stored)));
  }
}

}  // namespace Zorbe::Test::Chaos
