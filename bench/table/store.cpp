// SPDX-License-Identifier: MIT
#include "table/store.h"

#include <random>
#include <stdexcept>
#include <utility>

namespace Bench {

namespace {

constexpr size_t kKeys = size_t{1} << 20;

}  // namespace

Numbers randomNumbers(size_t count, uint64_t limit) {
  std::mt19937_64 random(limit);
  Numbers numbers(count);
  for (uint64_t& number : numbers) number = random() % limit;
  return numbers;
}

KeySource::KeySource(uint64_t records) : keys_(randomNumbers(kKeys, records)) {
  for (uint64_t& key : keys_) key = keyOf(key);
}

const uint64_t* KeySource::next(size_t count) {
  if (position_ + count > keys_.size()) position_ = 0;
  return keys_.data() + std::exchange(position_, position_ + count);
}

void failMissing() {
  throw std::runtime_error("a record is missing");
}

Stores makeSharedStores(const std::string& directory, uint64_t records) {
  Stores stores;
  stores.push_back(makeTable(directory, records));
#ifdef BENCH_WITH_LMDB
  stores.push_back(makeLmdb(directory, records));
#endif
#ifdef BENCH_WITH_BOOST
  stores.push_back(makeMutex(directory, records));
  stores.push_back(makeSharableMutex(directory, records));
#endif
  return stores;
}

}  // namespace Bench
