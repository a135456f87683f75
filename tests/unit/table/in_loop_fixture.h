// SPDX-License-Identifier: MIT
#pragma once

#include "unit/table/record.h"

#include "support/fixture.h"
#include "support/roles.h"

#include <zorbe/table/in_loop.h>

#include <map>

namespace Zorbe::Test {

/// Writer and reader on the bundled loop, in one process.
class InLoop : public ZorbeTest {
 protected:
  using Kind = Table::Kind;
  using State = Table::State;
  using Writer = Table::LoopWriter<uint32_t, Record>;
  using Reader = Table::LoopReader<uint32_t, Record>;

  InLoop() {
    options.log = &handler;
    options.root = rootPath();
  }

  bool turnUntil(const std::function<bool()>& done) { return Zorbe::Test::turnUntil(loop, done); }

  // What the reader has delivered so far.
  void drain(Reader& reader) {
    while (const auto change = reader.next()) {
      kinds.push_back(change->kind);
      if (change->kind == Kind::reset) copy.clear();
      if (change->kind == Kind::put) copy[change->key] = change->value.a;
      if (change->kind == Kind::erased) copy.erase(change->key);
    }
  }

  bool sees(Reader& reader, uint32_t key, std::optional<int64_t> value) {
    return turnUntil([&] {
      drain(reader);
      const auto found = copy.find(key);
      return value ? found != copy.end() && found->second == *value : found == copy.end();
    });
  }

  static bool isAccepted(const Reader& reader) {
    const auto status = reader.status();
    return status && status->connections == 1;
  }

  Brask::Linux::EventLoop loop;
  Table::Options options;
  std::vector<Kind> kinds;
  std::map<uint32_t, int64_t> copy;
};

}  // namespace Zorbe::Test
