// SPDX-License-Identifier: MIT
#include <string>

#include "c/handle.h"
#include "c/record.h"

namespace Zorbe::Table {

namespace {

// With zero bytes where no field is: other users can read the files.
std::string withoutGaps(const Shape& shape, const void* value) {
  std::string bytes(static_cast<const char*>(value), shape.valueBytes());
  for (const auto& [offset, length] : shape.gaps()) bytes.replace(offset, length, length, '\0');
  return bytes;
}

int put(TableHandle& handle, const void* key, size_t keySize, const void* value, size_t valueSize) {
  const Shape& shape = *handle.shape;
  KeyBuffer words;
  if (!encodeKey(handle, key, keySize, words)) {
    throw Error(ErrorCode::tooLarge, handle.name, "",
                "the key has " + std::to_string(keySize) + " bytes and its type room for " +
                    std::to_string(shape.textBytes()));
  }
  checkValue(handle, value, valueSize);
  if (shape.gaps().empty()) {
    handle.writer->put(words, value);
  } else {
    handle.writer->put(words, withoutGaps(shape, value).data());
  }
  return 0;
}

int erase(TableHandle& handle, const void* key, size_t keySize) {
  KeyBuffer words;
  if (!encodeKey(handle, key, keySize, words)) return ZORBE_NOT_FOUND;
  return handle.writer->erase(words) ? 0 : ZORBE_NOT_FOUND;
}

}  // namespace

}  // namespace Zorbe::Table

using namespace Zorbe::Table;

int zorbe_put(zorbe_table* table, const void* key, size_t key_size, const void* value,
              size_t value_size) {
  return call(table, zorbe_table::kWriter,
              [&](TableHandle& handle) { return put(handle, key, key_size, value, value_size); });
}

int zorbe_erase(zorbe_table* table, const void* key, size_t key_size) {
  return call(table, zorbe_table::kWriter,
              [&](TableHandle& handle) { return erase(handle, key, key_size); });
}

int zorbe_publish(zorbe_table* table) {
  return call(table, zorbe_table::kWriter, [](TableHandle& handle) {
    handle.writer->publish();
    return 0;
  });
}
