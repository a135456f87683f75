// SPDX-License-Identifier: MIT
#pragma once

#include <list>
#include <string>
#include <vector>

#include "stress/relay/process.h"

namespace Zorbe::Test::RelayChaos {

/// The publishers of the table: one, and for a while a second one that takes over.
class Publishers {
 public:
  explicit Publishers(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {}

  /// Another one, beside those that run.
  Process& start();

  /// Those that have not ended, the oldest first.
  std::list<Process>& all() { return all_; }

  /// The server may have lost what it knew of publishers: any one of several may take over.
  void serverHasLost() { isOrderKnown_ = false; }

  /// This one is alone, and the server knows it: from now on it has no reason to end.
  void settle();

  /// Drops those that have ended. Throws Failure when one had no reason to, or not the right
  /// status and message.
  void noticeEnds();

  /// Kills one and drops it.
  void kill(Process& publisher);

  /// The logs of all, also of those that have ended lately.
  std::string logs() const;

 private:
  void requireReason(const Process& ended, int status) const;
  void keepLog(const Process& publisher);

  std::vector<std::string> arguments_;
  unsigned started_ = 0;
  std::list<Process> all_;
  bool isOrderKnown_ = true;
  bool wereOthers_ = false;  // beside another one, since one was alone
  std::list<std::string> oldLogs_;
};

}  // namespace Zorbe::Test::RelayChaos
