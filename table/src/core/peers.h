// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/kick.h>
#include <zorbe/table/options.h>

#include <unordered_map>

namespace Zorbe::Table {

/// The connections of a writer: which process, in which state, since when.
class Peers {
 public:
  using Connections = std::unordered_map<int, ReaderKickClientSm*>;

  /// The state of the connections, by their descriptors, now.
  Status look(const Connections& all, const Connections& asleep);

 private:
  std::unordered_map<int, Peer> known_;  // by the descriptors of the connections
};

}  // namespace Zorbe::Table
