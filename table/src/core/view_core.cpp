// SPDX-License-Identifier: MIT
#include "core/view_shared.h"

namespace Zorbe::Table {

class ViewCore::Impl {
 public:
  explicit Impl(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

  const std::shared_ptr<Shared>& shared() const { return shared_; }

  /// The current table, null when there is none.
  TableReader* table() {
    if (shared_->version() != version_) table_ = shared_->copy(version_);
    return table_.get();
  }

 private:
  std::shared_ptr<Shared> shared_;
  uint64_t version_ = 0;
  std::unique_ptr<TableReader> table_;
};

ViewCore::ViewCore(std::shared_ptr<Shared> shared)
    : impl_(std::make_unique<Impl>(std::move(shared))) {}
ViewCore::ViewCore(ViewCore&& other) noexcept = default;
ViewCore& ViewCore::operator=(ViewCore&& other) noexcept = default;
ViewCore::~ViewCore() = default;

bool ViewCore::get(const uint64_t* key, void* value) {
  TableReader* table = impl_->table();
  return table != nullptr && table->get(key, value);
}

std::optional<ViewCore::Place> ViewCore::find(const uint64_t* key) {
  TableReader* table = impl_->table();
  if (table == nullptr) return std::nullopt;
  const std::optional<uint32_t> slot = table->find(key);
  if (!slot) return std::nullopt;
  return Place{table->incarnation(), *slot};
}

bool ViewCore::read(const Place& place, const uint64_t* key, void* value) {
  TableReader* table = impl_->table();
  if (table == nullptr) return false;
  if (table->incarnation() != place.incarnation) return table->get(key, value);
  return table->read(place.slot, key, value);
}

bool ViewCore::scan(uint64_t& cursor, uint64_t* key, void* value) {
  TableReader* table = impl_->table();
  if (table == nullptr) return false;
  for (RecordOut out{key, value, table->valueBytes()}; cursor < UINT32_MAX;) {
    if (!table->readSlot(static_cast<uint32_t>(cursor), out)) return false;
    ++cursor;
    if (out.state == kLive) return true;
  }
  return false;
}

ViewCore ViewCore::clone() const {
  return ViewCore(impl_->shared());
}

}  // namespace Zorbe::Table
