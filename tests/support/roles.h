// SPDX-License-Identifier: MIT
//
// The processes of a test. Each runs a loop and handles commands:
//
//     writer    publish N     publishes N times
//               readers N     repeats this when N are connected
//               caught up N   repeats this when N are connected and all have reported the last
//     reader    reach N       answers "at N" when its table is there
//     follower  alone         repeats this when it has no writer
//               count         answers "connections C departures D"
//     all       leave         ends
#pragma once

#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>

#include <functional>
#include <iostream>
#include <string>

#include "support/table.h"

namespace Zorbe::Test {

/// What a process of a test has.
struct ProcessContext {
  /// Messages up to `maxLevel` are written to the log of the process.
  explicit ProcessContext(int maxLevel = 0) : handler(std::cerr, maxLevel) {}

  Brask::Linux::EventLoop loop;
  Brask::Linux::StreamDebugHandler handler;
  RootPath root{handler, "quotes", true};
};

/// Moves this process into a network namespace of its own. False when it may not.
bool enterOwnNetworkNamespace();

/// Raises the soft limit of open descriptors. False when the hard limit is too low.
bool allowDescriptors(unsigned count);

/// Sends "listening" and handles commands.
void runWriter(Channel& parent, SharedTable& table);

/// Connects to the writer, which listens already, and handles commands.
void runReader(Channel& parent, SharedTable& table);

/// Follows one writer after the other, and handles commands.
void runFollower(Channel& parent, SharedTable& table);

}  // namespace Zorbe::Test
