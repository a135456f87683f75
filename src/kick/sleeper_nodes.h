// SPDX-License-Identifier: MIT
//
// Readers fall asleep and are woken with every publish; the nodes of the map that they sleep
// in go round with them instead of through the allocator.
#pragma once

#include <cstddef>
#include <unordered_map>

namespace Zorbe {

class ReaderKickClientSm;

namespace SleeperNodes {

using Sleepers = std::unordered_map<int, ReaderKickClientSm*>;

constexpr std::size_t limit = 1024;  // nodes that a thread keeps; the rest is freed

/// Same as sleepers[fd] = client, in a node that was kept if there is one.
void insert(Sleepers& sleepers, int fd, ReaderKickClientSm* client);

/// Same as sleepers.clear(), but keeps the nodes for the calling thread.
void clear(Sleepers& sleepers) noexcept;

/// Frees what the calling thread keeps: a writer has ended.
void release() noexcept;

}  // namespace SleeperNodes

}  // namespace Zorbe
