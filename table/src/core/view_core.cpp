// SPDX-License-Identifier: MIT
#include "core/view_shared.h"

namespace Zorbe::Table {

class ViewCore::Impl {
 public:
  explicit Impl(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

  const std::shared_ptr<Shared>& shared() const { return shared_; }
  const Detail::Window& window() const { return window_; }

  /// What `use` returns for the current table; Result() when there is none. It may unmap what
  /// the window shows, and may throw: the window is empty until it has returned.
  template <class Use>
  auto with(Use use) {
    ++window_.calls;
    window_.shape = 0;
    if (Detail::relaxed(shared_->version()) != version_) table_ = shared_->copy(version_);
    if (!table_) return decltype(use(*table_))();
    auto result = use(*table_);
    window_.version = &shared_->version();
    window_.mappedVersion = version_;
    table_->describe(window_);
    return result;
  }

 private:
  std::shared_ptr<Shared> shared_;
  uint64_t version_ = 0;
  std::unique_ptr<TableReader> table_;
  Detail::Window window_;
};

ViewCore::ViewCore(std::shared_ptr<Shared> shared)
    : impl_(std::make_unique<Impl>(std::move(shared))), window_(&impl_->window()) {}
ViewCore::ViewCore(ViewCore&& other) noexcept = default;
ViewCore& ViewCore::operator=(ViewCore&& other) noexcept = default;
ViewCore::~ViewCore() = default;

bool ViewCore::get(const uint64_t* key, void* value) {
  return impl_->with([&](TableReader& table) { return table.get(key, value); });
}

std::optional<ViewCore::Place> ViewCore::find(const uint64_t* key) {
  return impl_->with([&](TableReader& table) -> std::optional<Place> {
    const std::optional<uint32_t> slot = table.find(key);
    if (!slot) return std::nullopt;
    return Place{table.incarnation(), *slot};
  });
}

bool ViewCore::read(const Place& place, const uint64_t* key, void* value) {
  return impl_->with([&](TableReader& table) {
    if (table.incarnation() != place.incarnation) return table.get(key, value);
    return table.read(place.slot, key, value);
  });
}

bool ViewCore::scan(uint64_t& cursor, uint64_t* key, void* value) {
  return impl_->with([&](TableReader& table) {
    for (RecordOut out{key, value, table.valueBytes()}; cursor < UINT32_MAX;) {
      if (!table.readSlot(static_cast<uint32_t>(cursor), out)) return false;
      ++cursor;
      if (out.state == kLive) return true;
    }
    return false;
  });
}

ViewCore ViewCore::clone() const {
  return ViewCore(impl_->shared());
}

}  // namespace Zorbe::Table
