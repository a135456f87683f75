// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>

#include "c/handle.h"
#include "c/record.h"

namespace Zorbe::Table {

namespace {

// As View searches, without a call of what is below; false when that has to look.
template <uint32_t keyWords>
bool glance(const ViewCore& view, const uint64_t* words, void* value) {
  using Glance = Detail::Glance<keyWords, Detail::kValueOfWindow>;
  typename Glance::Key key;
  std::copy_n(words, keyWords, key.begin());
  return Glance(view.window()).find(key, value) != Glance::kMiss;
}

bool glanceOf(const ViewCore& view, uint32_t keyBytes, const uint64_t* words, void* value) {
  switch ((keyBytes + 7) / 8) {
    case 1:
      return glance<1>(view, words, value);
    case 2:
      return glance<2>(view, words, value);
    case 3:
      return glance<3>(view, words, value);
    default:
      return false;
  }
}

bool find(TableHandle& handle, const uint64_t* words, void* value) {
  if (handle.writer) return handle.writer->get(words, value);
  return glanceOf(*handle.view, handle.shape->keyBytes(), words, value) ||
         handle.view->get(words, value);
}

int get(TableHandle& handle, const void* key, size_t keySize, void* value, size_t valueSize) {
  if (handle.findShape() == nullptr) return ZORBE_NOT_FOUND;
  KeyBuffer words;
  const bool fits = encodeKey(handle, key, keySize, words);
  if (value != nullptr || valueSize != 0) checkValue(handle, value, valueSize);
  if (!fits) return ZORBE_NOT_FOUND;
  return find(handle, words, value) ? 0 : ZORBE_NOT_FOUND;
}

// The next record; false after the last one.
bool scan(TableHandle& handle, uint64_t& cursor, uint64_t* words, void* value) {
  if (handle.view) return handle.view->scan(cursor, words, value);
  return handle.writer->scan(cursor, words, value);
}

int scan(TableHandle& handle, uint64_t* cursor, void* key, void* value) {
  if (cursor == nullptr) handle.failUsage("the cursor is NULL");
  const Shape* const shape = handle.findShape();
  KeyBuffer words;
  if (shape == nullptr || !scan(handle, *cursor, words, value)) return ZORBE_END;
  if (key != nullptr) std::memcpy(key, words, shape->keyBytes());
  return 0;
}

size_t count(TableHandle& handle) {
  if (handle.writer) return static_cast<size_t>(handle.writer->size());
  size_t records = 0;
  uint64_t cursor = 0;
  for (KeyBuffer words; handle.view->scan(cursor, words, nullptr);) ++records;
  return records;
}

}  // namespace

}  // namespace Zorbe::Table

using namespace Zorbe::Table;

int zorbe_get(zorbe_table* table, const void* key, size_t key_size, void* value,
              size_t value_size) {
  return call(table, zorbe_table::kEither,
              [&](TableHandle& handle) { return get(handle, key, key_size, value, value_size); });
}

int zorbe_scan(zorbe_table* table, uint64_t* cursor, void* key, void* value) {
  return call(table, zorbe_table::kEither,
              [&](TableHandle& handle) { return scan(handle, cursor, key, value); });
}

size_t zorbe_count(const zorbe_table* table) {
  size_t records = 0;
  static_cast<void>(call(table, zorbe_table::kEither, [&](TableHandle& handle) {
    records = count(handle);
    return 0;
  }));
  return records;
}
