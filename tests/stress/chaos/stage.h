// SPDX-License-Identifier: MIT
//
// What a process of a storm needs besides its client.
#pragma once

#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <zorbe/root_path.h>

#include <string>

#include "stress/chaos/board.h"
#include "support/child_process.h"

namespace Zorbe::Test::Chaos {

inline constexpr const char* tableName = "quotes";

/// Keeps the latest failures alone: a process that is never killed has many to tell.
class ShortLog final : public Brask::Platform::DebugHandler {
 public:
  ShortLog();
  bool isEnabled(int level) override { return out_.isEnabled(level); }
  void emit(std::ostringstream& message, int level) override;

 private:
  Brask::Linux::StreamDebugHandler out_;
  unsigned lines_ = 0;
};

/// Signs its process in at a place of the board, and turns its loop until SIGTERM comes.
class ChaosStage {
 public:
  ChaosStage(Channel& parent, Place& place);

  /// Calls `tellState` after each turn, which says whether there was anything to tell.
  template <class TellState>
  void run(TellState tellState) {
    while (!isAskedToLeave()) {
      if (tellState()) ring();
      loop.turn(-1);
    }
  }

  Brask::Linux::EventLoop loop;
  ShortLog log;
  RootPath root{log, tableName, true};

 private:
  static bool isAskedToLeave();
  void ring();

  Channel& parent_;
};

/// Opens a descriptor that nobody will close.
void leakDescriptor();

/// Stores, and says whether that is news.
template <class Atomic, class Value>
bool update(Atomic& where, Value value) {
  return where.exchange(value) != value;
}

}  // namespace Zorbe::Test::Chaos
