// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/options.h>

#include "memory/follower.h"
#include "memory/origin.h"
#include "memory/table_reader.h"

namespace Zorbe::Table {

/// What a reader knows of its table and of how far it has read.
inline Info infoOf(const TableReader& reader, const Follower& follower) {
  const SlotsHeader& header = reader.header();
  const uint64_t origin = acquire(header.origin);
  Info info;
  info.incarnation = reader.incarnation();
  info.published = reader.published();
  info.position = follower.position();
  info.lag = follower.lag();
  info.records = acquire(header.capacity);
  info.publishedAt = static_cast<int64_t>(reader.publishedAt());
  info.origin = OriginWord::origin(origin);
  info.originSince = OriginWord::since(origin);
  return info;
}

}  // namespace Zorbe::Table
