// SPDX-License-Identifier: MIT
#include "core/peers.h"

#include <sys/socket.h>

#include "memory/clock.h"

namespace Zorbe::Table {

namespace {

PeerState stateOf(const ReaderKickClientSm& client, bool isAsleep) {
  if (isAsleep) return PeerState::asleep;
  return client.acknowledged ? PeerState::behind : PeerState::watcher;
}

// Asked each time: between two looks another process may have got the descriptor of one that has
// ended, and its connection the same place in memory.
void identify(int fd, Peer& peer) {
  ucred who{};
  socklen_t length = sizeof who;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &who, &length) != 0) return;
  peer.pid = static_cast<uint32_t>(who.pid);
  peer.uid = who.uid;
}

}  // namespace

Status Peers::look(const Connections& all, const Connections& asleep) {
  Status status;
  status.now = static_cast<int64_t>(nanosecondsOf(CLOCK_MONOTONIC));
  status.connections = all.size();
  std::unordered_map<int, Peer> former;
  former.swap(known_);
  for (const auto& [fd, client] : all) {
    Peer peer;
    identify(fd, peer);
    peer.reported = client->sequence;
    peer.state = stateOf(*client, asleep.count(fd) != 0);
    const auto found = former.find(fd);
    const bool isAsBefore = found != former.end() && found->second.pid == peer.pid &&
                            found->second.state == peer.state &&
                            found->second.reported == peer.reported;
    peer.since = isAsBefore ? found->second.since : status.now;
    known_[fd] = peer;
    status.peers.push_back(peer);
  }
  return status;
}

}  // namespace Zorbe::Table
