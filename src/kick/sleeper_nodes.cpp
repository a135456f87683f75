// SPDX-License-Identifier: MIT
#include "kick/sleeper_nodes.h"

#include <new>
#include <utility>
#include <vector>

namespace Zorbe::SleeperNodes {

namespace {

using Nodes = std::vector<Sleepers::node_type>;

// Looked up once a call: a plain pointer needs no more than the thread's address, and is
// still there when destructors run after the nodes have gone at the thread's end.
struct Kept {
  Nodes* nodes;
  bool over;
};
thread_local Kept thisThread{nullptr, false};

struct Owner {
  Nodes nodes;
  ~Owner() { thisThread = {nullptr, true}; }
};

// The nodes of a thread that keeps some, with room for all that it ever will; null when there
// is no memory, or the thread is ending.
Nodes* makeRoom(Kept& kept) noexcept {
  if (kept.over) return nullptr;
  try {
    static thread_local Owner owner;
    owner.nodes.reserve(limit);
    return kept.nodes = &owner.nodes;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

[[gnu::hot]] void insert(Sleepers& sleepers, int fd, ReaderKickClientSm* client) {
  Nodes* const nodes = thisThread.nodes;
  if (nodes == nullptr || nodes->empty()) {
    sleepers[fd] = client;
    return;
  }
  Sleepers::node_type node = std::move(nodes->back());
  nodes->pop_back();
  node.key() = fd;
  node.mapped() = client;
  auto inserted = sleepers.insert(std::move(node));
  if (inserted.inserted) return;
  inserted.position->second = client;  // asleep already
  nodes->push_back(std::move(inserted.node));
}

[[gnu::hot]] void clear(Sleepers& sleepers) noexcept {
  Kept& kept = thisThread;
  Nodes* const nodes = kept.nodes != nullptr ? kept.nodes : makeRoom(kept);
  if (nodes != nullptr) {
    while (!sleepers.empty() && nodes->size() < limit) {
      nodes->push_back(sleepers.extract(sleepers.begin()));
    }
  }
  sleepers.clear();
}

void release() noexcept {
  if (thisThread.nodes == nullptr) return;
  Nodes().swap(*thisThread.nodes);
  thisThread.nodes = nullptr;
}

}  // namespace Zorbe::SleeperNodes
