// SPDX-License-Identifier: MIT
#pragma once

#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <zorbe/table/options.h>

#include <iostream>
#include <string>

#include "records/streams.h"
#include "support/channel.h"
#include "support/probes.h"

namespace Zorbe::Test::RelayChaos {

/// What a child process that runs a function needs: a loop that turns until SIGTERM, and a log.
class Role {
 public:
  explicit Role(const std::string& root) {
    options_.root = root;
    options_.log = &log_;
    stopped_.control->watch(stop_.fd());
  }

  /// Of the table below this role's root.
  const Table::Options& options() const { return options_; }
  Table::Options& options() { return options_; }

  /// Returns after SIGTERM.
  void run(Channel& parent) {
    parent.send("ready");
    while (!isOver_) loop_.turn(-1);
  }

 private:
  Brask::Linux::EventLoop loop_;
  Tool::StopSignals stop_;
  bool isOver_ = false;
  FdProbe stopped_{[this](int) { isOver_ = true; }};
  Brask::Linux::StreamDebugHandler log_{std::cerr, 0};
  Table::Options options_;
};

}  // namespace Zorbe::Test::RelayChaos
