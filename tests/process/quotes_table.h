// SPDX-License-Identifier: MIT
#pragma once

#include <change_follower.h>
#include <table_reader.h>
#include <table_writer.h>

#include <fstream>
#include <memory>
#include <string>

#include "support/fixture.h"

namespace Zorbe::Test {

/// For tests of the memory of the example's table.
class QuotesTable : public ZorbeTest {
 protected:
  Quotes::TableWriter& make(const Quotes::Shape& shape, uint64_t sequence = 0) {
    table = std::make_unique<Quotes::TableWriter>(root, shape, ++fenix, sequence);
    return *table;
  }

  Quotes::TableWriter& makeComplete(const Quotes::Shape& shape = {}) {
    make(shape).complete();
    return *table;
  }

  Quotes::ChangeFollower follow() { return {Quotes::TableReader::open(root).value(), counters}; }

  static void advanceFully(Quotes::ChangeFollower& follower) {
    while (follower.advance(1000) == Quotes::ChangeFollower::Progress::kMore) continue;
  }

  Quotes::Copy written() const {
    Quotes::Copy copy;
    for (const Quotes::Record& record : table->records())
      copy[Quotes::quoteOf(record).symbol] = Quotes::quoteOf(record);
    return copy;
  }

  /// Overwrites bytes of a file of the table.
  void damage(const char* file, std::streamoff offset, const std::string& bytes) const {
    std::fstream stream(root.fullPath(file), std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(offset);
    ASSERT_TRUE(stream << bytes << std::flush);
  }

  RootPath root{handler, "table", true};
  Reader::Counters counters{};
  std::unique_ptr<Quotes::TableWriter> table;
  uint32_t fenix = 0;
};

}  // namespace Zorbe::Test
