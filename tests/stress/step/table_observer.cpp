// SPDX-License-Identifier: MIT
#include "stress/step/table_observer.h"

#include <algorithm>
#include <stdexcept>

namespace Zorbe::Test {

TableObserver::TableObserver(TableSteps& test)
    : test_(test),
      reader_(test.openReader()),
      followed_(test.openReader()),
      keys_(test.allKeys()),
      view_(test.openReader()) {
  if (reader_ == nullptr || followed_ == nullptr) throw std::runtime_error("there is no table");
  copy_ = std::make_unique<Copy>(*followed_);
  for (const auto& [key, number] : keys_) {
    if (const auto slot = reader_->find(&key)) slots_[key] = *slot;
    if (const auto handle = view_.view().find(key)) handles_.emplace(key, *handle);
  }
  capacity_ = reader_->capacity();
  index_ = Table::acquire(reader_->header().indexGeneration);
  log_ = reader_->logGeneration();
}

std::string TableObserver::grown() const {
  std::string grown;
  if (reader_->capacity() > capacity_) grown += "capacity ";
  if (Table::acquire(reader_->header().indexGeneration) > index_) grown += "index ";
  if (reader_->logGeneration() > log_) grown += "log ";
  return grown;
}

std::optional<uint64_t> TableObserver::in(size_t changes, uint64_t key) const {
  const Records& records = test_.state(changes);
  const auto found = records.find(key);
  if (found == records.end()) return std::nullopt;
  return found->second;
}

void TableObserver::look() {
  for (const auto& [key, ignored] : keys_) {
    expectNoLess(seen_, key, TableSteps::get(*reader_, key));
    expectNoLess(seenByView_, key, viewed(key));
  }
  readHandles();
}

void TableObserver::expectNoLess(Seen& seenBy, uint64_t key,
                                 const std::optional<uint64_t>& number) const {
  size_t& seen = seenBy[key];
  seen = std::max(seen, test_.finished());
  if (number == in(seen, key)) return;
  ASSERT_EQ(seen, test_.finished()) << "key " << key << " has its old value again";
  ASSERT_EQ(number, in(++seen, key)) << "key " << key << " after " << test_.finished();
}

std::optional<uint64_t> TableObserver::viewed(uint64_t key) {
  ++views_;
  return view_.get(key);
}

void TableObserver::readHandles() {
  for (const auto& [key, slot] : slots_) {
    Value value;
    if (!reader_->read(slot, &key, &value)) continue;
    EXPECT_TRUE(value.isWhole());
    expectKnown(key, value.number());
  }
  for (const auto& [key, handle] : handles_) {
    Bytes bytes{};
    ++views_;
    if (!view_.view().read(handle, bytes)) {
      expectKnown(key, std::nullopt);
      continue;
    }
    EXPECT_TRUE(bytes.value().isWhole());
    expectKnown(key, bytes.value().number());
  }
}

uint64_t TableObserver::percentWithoutACall() const {
  return 100 - 100 * view_.calls() / views_;
}

void TableObserver::lookAfresh() {
  auto reader = test_.openReader();
  ASSERT_NE(reader, nullptr);
  for (const auto& [key, ignored] : keys_) expectKnown(key, TableSteps::get(*reader, key));
  const ViewOfTable view(std::move(reader));
  for (const auto& [key, ignored] : keys_) expectKnown(key, view.get(key));
}

void TableObserver::expectKnown(uint64_t key, const std::optional<uint64_t>& number) const {
  const size_t finished = test_.finished();
  EXPECT_TRUE(number == in(finished, key) || number == in(finished + 1, key)) << "key " << key;
}

void TableObserver::follow() {
  copy_->drain();
  EXPECT_EQ(copy_->torn, 0u);
  for (const auto& [key, number] : copy_->records) {
    bool known = false;
    for (size_t i = 0; i <= test_.finished() + 1; ++i) known = known || in(i, key) == number;
    EXPECT_TRUE(known) << "key " << key;
  }
}

void TableObserver::expectFollowed() {
  copy_->drain();
  EXPECT_EQ(copy_->resets, 1u);  // the first scan
  EXPECT_EQ(Records(copy_->records.begin(), copy_->records.end()), test_.state(~size_t{0}));
}

}  // namespace Zorbe::Test
