// SPDX-License-Identifier: MIT
#include "top/model.h"

#include <algorithm>
#include <exception>
#include <set>
#include <utility>

namespace Zorbe::Tool {

namespace {

// Records of larger tables are not counted each time.
constexpr uint64_t kCountedBytes = uint64_t{16} << 20;

}  // namespace

void TopModel::sample(Clock::time_point now) {
  seconds_ = std::chrono::duration<double>(now - std::exchange(time_, now)).count();
  publishedBefore_ = std::exchange(published_, {});
  reportedBefore_ = std::exchange(reported_, {});
  problem_.clear();
  items_.clear();
  try {
    read();
  } catch (const std::exception& failure) {
    problem_ = failure.what();
  }
}

void TopModel::read() {
  survey_ = survey(handler_);
  items_ = itemsOf(survey_, HeaderReader(kCountedBytes));
  for (const Item& item : items_) {
    const std::optional<TableHeader>& header = item.reading.header;
    if (header) published_[item.table->name] = {header->incarnation, header->published};
  }
  readReaders();
}

void TopModel::readReaders() {
  readers_ = {};
  const auto item = std::find_if(items_.begin(), items_.end(), [&](const Item& each) {
    return inside_ && each.table->name == *inside_;
  });
  if (item == items_.end()) return;
  readers_ = findReaders(handler_, *item->table, item->reading.header);
  std::set<pid_t> several;
  for (const ReaderRow& row : readers_.rows) {
    if (!row.pid || !row.reported) continue;
    if (!reported_.try_emplace(*row.pid, *row.reported).second) several.insert(*row.pid);
  }
  for (const pid_t pid : several) reported_.erase(pid);
}

void TopModel::lookInto(const std::optional<std::string>& name) {
  inside_ = name;
  reported_.clear();
  reportedBefore_.clear();
  readReaders();
}

std::optional<double> TopModel::perSecond(uint64_t before, uint64_t now) const {
  if (now < before || seconds_ <= 0) return std::nullopt;
  return static_cast<double>(now - before) / seconds_;
}

std::optional<double> TopModel::rate(const Item& item) const {
  const auto before = publishedBefore_.find(item.table->name);
  const auto now = published_.find(item.table->name);
  if (before == publishedBefore_.end() || now == published_.end() ||
      before->second.incarnation != now->second.incarnation) {
    return std::nullopt;
  }
  return perSecond(before->second.value, now->second.value);
}

std::optional<double> TopModel::rate(const ReaderRow& row) const {
  if (!row.pid) return std::nullopt;
  const auto before = reportedBefore_.find(*row.pid);
  const auto now = reported_.find(*row.pid);
  if (before == reportedBefore_.end() || now == reported_.end()) return std::nullopt;
  return perSecond(before->second, now->second);
}

}  // namespace Zorbe::Tool
