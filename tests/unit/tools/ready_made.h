// SPDX-License-Identifier: MIT
#pragma once

#include "unit/tools/command_fixture.h"

#include <zorbe/table.h>

#include <cstdint>

namespace Zorbe::Test {

/// The command, with tables of the ready-made kind that the test writes itself.
class ReadyMade : public Command {
 protected:
  using Writer = Table::Writer<uint64_t, uint64_t>;
  using Reader = Table::Reader<uint64_t, uint64_t>;

  /// Puts and publishes the keys from 0 on.
  static void fill(Writer& writer, uint64_t count) {
    for (uint64_t key = 0; key < count; ++key) writer.put(key, key);
    writer.publish();
  }
};

}  // namespace Zorbe::Test
