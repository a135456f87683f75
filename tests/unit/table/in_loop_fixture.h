// SPDX-License-Identifier: MIT
#pragma once

#include "unit/table/table_clients.h"

#include "support/fixture.h"
#include "support/roles.h"

#include <zorbe/table/in_loop.h>

#include <map>

namespace Zorbe::Test {

/// Writer and reader on the bundled loop, in one process.
class InLoop : public TableClients<Table::LoopWriter<uint32_t, Record>,
                                   Table::LoopReader<uint32_t, Record>> {
 protected:
  InLoop() { options.log = &handler; }

  bool turnUntil(const std::function<bool()>& done) { return Zorbe::Test::turnUntil(loop, done); }

  bool sees(Reader& reader, uint32_t key, std::optional<int64_t> value) {
    return turnUntil([&] {
      drain(reader);
      return has(key, value);
    });
  }

  /// A writer, and a reader that has its first record.
  struct Clients {
    Clients(InLoop& test, const std::string& table)
        : writer(table, test.options), reader(table, test.options) {
      writer.put(1, {10, 0});
      EXPECT_TRUE(test.sees(reader, 1, 10));
      incarnation = reader.info().incarnation;
    }

    Writer writer;
    Reader reader;
    uint64_t incarnation;
  };

  bool becomes(const Reader& reader, State state) {
    return turnUntil([&] { return reader.state() == state; });
  }

  /// The writer has made another table, and the reader has it.
  bool leaves(const Reader& reader, uint64_t incarnation) {
    return turnUntil([&] { return reader.info().incarnation != incarnation; });
  }

  static bool isAccepted(const Reader& reader) {
    const auto status = reader.status();
    return status && status->connections == 1;
  }

  Brask::Linux::EventLoop loop;
};

}  // namespace Zorbe::Test
