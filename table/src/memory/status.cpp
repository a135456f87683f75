// SPDX-License-Identifier: MIT
#include "memory/status.h"

#include <algorithm>

namespace Zorbe::Table {

namespace {

// A copy: the writer's time, all connections, connections that follow, kicks, four words for each
// connection.
constexpr size_t kHeadWords = 4;
constexpr size_t kPeerWords = 4;
static_assert(kHeadWords + kMaxPeers * kPeerWords <= kStatusWords);

constexpr int kAttempts = 1000;

void storePeer(Word* words, const Peer& peer) {
  release(words[0], uint64_t{peer.pid} << 32 | peer.uid);
  release(words[1], peer.reported);
  release(words[2], static_cast<uint64_t>(peer.state));
  release(words[3], static_cast<uint64_t>(peer.since));
}

Peer loadPeer(const Word* words) {
  Peer peer;
  const uint64_t who = acquire(words[0]);
  const uint64_t state = acquire(words[2]);
  peer.pid = static_cast<uint32_t>(who >> 32);
  peer.uid = static_cast<uint32_t>(who);
  peer.reported = acquire(words[1]);
  if (state <= static_cast<uint64_t>(PeerState::behind)) peer.state = static_cast<PeerState>(state);
  peer.since = static_cast<int64_t>(acquire(words[3]));
  return peer;
}

Status loadCopy(const Word* words) {
  Status status;
  status.now = static_cast<int64_t>(acquire(words[0]));
  status.connections = acquire(words[1]);
  const auto listed = static_cast<size_t>(std::min<uint64_t>(acquire(words[2]), kMaxPeers));
  status.kicks = acquire(words[3]);
  for (size_t i = 0; i < listed; ++i) {
    status.peers.push_back(loadPeer(words + kHeadWords + i * kPeerWords));
  }
  return status;
}

}  // namespace

void storeStatus(SlotsHeader& header, const Status& status) {
  const uint64_t selector = relaxed(header.statusSelector) + 1;
  Word* words = header.status[selector % 2];
  const size_t listed = std::min(status.peers.size(), kMaxPeers);
  release(words[0], static_cast<uint64_t>(status.now));
  release(words[1], status.connections);
  release(words[2], listed);
  release(words[3], status.kicks);
  for (size_t i = 0; i < listed; ++i) {
    storePeer(words + kHeadWords + i * kPeerWords, status.peers[i]);
  }
  release(header.statusSelector, selector);
}

std::optional<Status> loadStatus(const SlotsHeader& header) {
  std::optional<Status> status;
  for (int attempt = 0; !status && attempt < kAttempts; ++attempt) {
    const uint64_t selector = acquire(header.statusSelector);
    status = loadCopy(header.status[selector % 2]);
    if (relaxed(header.statusSelector) != selector) status.reset();
  }
  if (status) status->takeovers = acquire(header.takeovers);
  return status;
}

}  // namespace Zorbe::Table
