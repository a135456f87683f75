// SPDX-License-Identifier: MIT
#include "core/peers.h"

#include <sys/socket.h>
#include <time.h>

namespace Zorbe::Table {

namespace {

int64_t monotonicNow() {
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_MONOTONIC, &now));  // cannot fail for this clock
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

PeerState stateOf(const ReaderKickClientSm& client, bool isAsleep) {
  if (isAsleep) return PeerState::asleep;
  return client.acknowledged ? PeerState::behind : PeerState::watcher;
}

}  // namespace

Status Peers::look(const Connections& all, const Connections& asleep) {
  Status status;
  status.now = monotonicNow();
  status.connections = all.size();
  std::unordered_map<int, Known> former;
  former.swap(known_);
  for (const auto& [fd, client] : all) {
    const auto found = former.find(fd);
    if (found != former.end() && found->second.client == client) {
      known_.insert(former.extract(found));
    }
    Known& known = find(fd, *client, status.now);
    const PeerState state = stateOf(*client, asleep.count(fd) != 0);
    if (state != known.peer.state) known.peer.since = status.now;
    known.peer.state = state;
    known.peer.reported = client->sequence;
    status.peers.push_back(known.peer);
  }
  return status;
}

Peers::Known& Peers::find(int fd, const ReaderKickClientSm& client, int64_t now) {
  const auto [at, isNew] = known_.try_emplace(fd, Known{&client, {}});
  if (!isNew) return at->second;
  ucred who{};
  socklen_t length = sizeof who;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &who, &length) == 0) {
    at->second.peer.pid = static_cast<uint32_t>(who.pid);
    at->second.peer.uid = who.uid;
  }
  at->second.peer.since = now;
  return at->second;
}

}  // namespace Zorbe::Table
