// SPDX-License-Identifier: MIT
#pragma once

#include "stress/chaos/shared_state.h"
#include "support/child_process.h"

namespace Zorbe::Test::Chaos {

/// How a process turns its table's reader or writer.
enum class Kind {
  kOwnLoop,      ///< Table::Reader, Table::Writer
  kProcessLoop,  ///< Table::LoopReader, Table::LoopWriter
};

/// Follows the table until SIGTERM, keeps a copy of it, and publishes its position and the copy's
/// digest in its state.
void runReader(Channel& parent, ProcessState& state, Kind kind, Flaw flaw);

}  // namespace Zorbe::Test::Chaos
