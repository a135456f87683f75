// SPDX-License-Identifier: MIT
#include <cstring>

#include "c/handle.h"
#include "c/record.h"

namespace Zorbe::Table {

namespace {

int get(TableHandle& handle, const void* key, size_t keySize, void* value, size_t valueSize) {
  if (handle.findShape() == nullptr) return ZORBE_NOT_FOUND;
  KeyBuffer words;
  const bool fits = encodeKey(handle, key, keySize, words);
  if (value != nullptr || valueSize != 0) checkValue(handle, value, valueSize);
  if (!fits) return ZORBE_NOT_FOUND;
  const bool isFound =
      handle.view ? handle.view->get(words, value) : handle.writer->get(words, value);
  return isFound ? 0 : ZORBE_NOT_FOUND;
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
