// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "harness/processes.h"

namespace Bench {

/// Stands for the network between a host and the server: a local socket, and a process that
/// carries what is written there to the server's, and what that answers back, a time later.
class Link {
 public:
  /// Nanoseconds in each direction.
  Link(const std::string& server, double delay);

  std::string socketPath() const { return directory_.path() + "/link"; }

 private:
  ScratchDirectory directory_;
  Children process_;
};

}  // namespace Bench
