// SPDX-License-Identifier: MIT
//
// What a process of a stress run needs besides its client.
#pragma once

#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <zorbe/table/options.h>

#include <string>

#include "stress/chaos/shared_state.h"
#include "support/child_process.h"

namespace Zorbe::Test::Chaos {

inline constexpr const char* kTableName = "chaos";

/// Keeps only the latest failures: a process that is never killed logs many.
class ShortLog final : public Brask::Platform::DebugHandler {
 public:
  ShortLog();
  bool isEnabled(int level) override { return out_.isEnabled(level); }
  void emit(std::ostringstream& message, int level) override;

 private:
  Brask::Linux::StreamDebugHandler out_;
  unsigned lines_ = 0;
};

/// Registers its process in its state, and turns its loop until SIGTERM.
class ClientContext {
 public:
  ClientContext(Channel& parent, ProcessState& state);

  /// Calls `updateState` after each turn; when it returns true, notifies the parent.
  template <class UpdateState>
  void run(UpdateState updateState) {
    while (!isStopRequested()) {
      if (updateState()) notifyParent();
      loop.turn(-1);
    }
  }

  /// With this process's log.
  Table::Options options() {
    Table::Options result;
    result.log = &log_;
    return result;
  }

  Brask::Linux::EventLoop loop;

 private:
  static bool isStopRequested();
  void notifyParent();

  ShortLog log_;
  Channel& parent_;
};

/// Opens a descriptor that is never closed.
void leakDescriptor();

/// Stores the value. Returns whether it is another one.
template <class Atomic, class Value>
bool update(Atomic& where, Value value) {
  return where.exchange(value) != value;
}

}  // namespace Zorbe::Test::Chaos
