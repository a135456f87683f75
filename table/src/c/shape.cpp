// SPDX-License-Identifier: MIT
#include "c/shape.h"

#include <algorithm>

#include "memory/layout.h"

namespace Zorbe::Table {

namespace {

static_assert(kMostKeyWords * 8 == kMaxKeyBytes);

// A length of more than one byte: texts of more than 255.
constexpr uint32_t kLongText = 255;

bool isPlainText(const Field& field) {
  return field.type == 'S' && field.count == 0 && field.offset == 0;
}

zorbe_field viewOf(const Field& field, zorbe_part part) {
  return {field.name.c_str(), part, field.type, field.bytes, field.count, field.offset};
}

}  // namespace

Shape::Shape(const Schema& schema)
    : keyBytes_(schema.keyBytes),
      valueBytes_(schema.valueBytes),
      description_(parseDescription(schema)) {
  if (!description_) return;
  for (const Field& field : description_->key) fields_.push_back(viewOf(field, ZORBE_KEY));
  for (const Field& field : description_->value) fields_.push_back(viewOf(field, ZORBE_VALUE));
  gaps_ = gapsOf(description_->value, valueBytes_);
  findText(description_->key);
}

// Text<N>: a text and its length behind it; or a text that fills the key.
void Shape::findText(const std::vector<Field>& key) {
  if (key.empty() || !isPlainText(key[0])) return;
  const uint32_t bytes = key[0].bytes;
  if (key.size() == 1 && bytes == keyBytes_) textBytes_ = bytes;
  if (key.size() != 2) return;
  const bool isLong = bytes > kLongText;
  const Field& length = key[1];
  const bool isLength = length.name == key[0].name + ".length" && length.type == 'u' &&
                        length.bytes == (isLong ? 2 : 1) && length.count == 0 &&
                        length.offset == bytes + (isLong ? bytes % 2 : 0) &&
                        length.offset + length.bytes == keyBytes_;
  if (!isLength) return;
  textBytes_ = bytes;
  lengthAt_ = length.offset;
  lengthBytes_ = length.bytes;
}

Shape::Fit Shape::encodeText(const void* key, size_t size, uint64_t* words) const {
  if (textBytes_ == 0) return Fit::kWrongSize;
  if (size > textBytes_) return Fit::kTooLong;
  std::memset(words, 0, (keyBytes_ + size_t{7}) / 8 * 8);
  if (size != 0) std::memcpy(words, key, size);
  auto* const bytes = reinterpret_cast<unsigned char*>(words);
  if (lengthBytes_ == 1) bytes[lengthAt_] = static_cast<unsigned char>(size);
  const auto length = static_cast<uint16_t>(size);
  if (lengthBytes_ == 2) std::memcpy(bytes + lengthAt_, &length, sizeof length);
  return Fit::kFits;
}

size_t Shape::lengthOf(const unsigned char* key) const {
  if (lengthBytes_ == 1) return key[lengthAt_];
  uint16_t length;
  std::memcpy(&length, key + lengthAt_, sizeof length);
  return length;
}

// Whether a whole key is a text as the library stores it. Another text of this size is too long:
// what is taken for its length does not fit to it.
bool Shape::isText(const uint64_t* words) const {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(words);
  const size_t length = lengthOf(bytes);
  return length <= textBytes_ &&
         std::all_of(bytes + length, bytes + lengthAt_, [](unsigned char b) { return b == 0; });
}

}  // namespace Zorbe::Table
