// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/core.h>

#include <atomic>
#include <memory>
#include <mutex>

#include "memory/table_reader.h"

namespace Zorbe::Table {

/// What the views of one reader share: the current table. A view checks the version with one
/// relaxed load for each get().
class ViewCore::Shared {
 public:
  /// From now on views use this table.
  void set(std::unique_ptr<TableReader> table) {
    const std::lock_guard<std::mutex> lock(mutex_);
    table_ = std::move(table);
    version_.fetch_add(1, std::memory_order_release);
  }

  const std::atomic<uint64_t>& version() const { return version_; }

  /// A reader of the current table, null when there is none, and the version that it is of.
  std::unique_ptr<TableReader> copy(uint64_t& version) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    version = version_.load(std::memory_order_relaxed);
    return table_ ? table_->clone() : nullptr;
  }

 private:
  mutable std::mutex mutex_;
  std::atomic<uint64_t> version_{1};
  std::unique_ptr<TableReader> table_;
};

}  // namespace Zorbe::Table
