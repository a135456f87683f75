// SPDX-License-Identifier: MIT
//
// What the processes of a test do. Each runs a loop and obeys:
//
//     writer    publish N     publish N times
//               readers N     say so when N are connected
//               caught up N   say so when N are connected and all have reported the last
//     reader    reach N       answer "at N" when its table is there
//     all       leave         end
#pragma once

#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>

#include <functional>
#include <iostream>
#include <string>

#include "support/table.h"

namespace Zorbe::Test {

/// What a process needs to play a role.
struct Stage {
  /// Messages up to `maxLevel` are written to the log of the process.
  explicit Stage(int maxLevel = 0) : handler(std::cerr, maxLevel) {}

  Brask::Linux::EventLoop loop;
  Brask::Linux::StreamDebugHandler handler;
  RootPath root{handler, "quotes", true};
};

/// Turns the loop until `done`; false when that takes too long.
bool turnUntil(Brask::Linux::EventLoop& loop, const std::function<bool()>& done);

/// Moves this process into a network namespace of its own. False when it may not.
bool enterOwnNetworkNamespace();

/// Raises the soft limit of open descriptors. False when the hard limit is too low.
bool allowDescriptors(unsigned count);

/// Says "listening" and obeys.
void playWriter(Channel& parent, SharedTable& table);

/// Connects to the writer, which is there, and obeys.
void playReader(Channel& parent, SharedTable& table);

/// Follows whatever writers come and go, and obeys. Told "alone", says so when it has no writer;
/// answers "count" with "connections C departures D".
void playFollower(Channel& parent, SharedTable& table);

}  // namespace Zorbe::Test
