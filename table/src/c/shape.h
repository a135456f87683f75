// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/c_interface.h>
#include <zorbe/table/codec.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace Zorbe::Table {

inline constexpr size_t kMostKeyWords = 128;
using KeyBuffer = uint64_t[kMostKeyWords];

/// What the records of a table look like, for calls that pass bytes. Never changes.
class Shape {
 public:
  explicit Shape(const Schema& schema);
  Shape(const Shape&) = delete;
  Shape& operator=(const Shape&) = delete;

  uint32_t keyBytes() const { return keyBytes_; }
  uint32_t valueBytes() const { return valueBytes_; }

  /// Those of the key first. Empty when the schema is none that can be parsed.
  const std::vector<zorbe_field>& fields() const { return fields_; }

  /// Of a key that is one text; 0 for any other key.
  uint32_t textBytes() const { return textBytes_; }

  /// Of values: see Codec.
  const std::vector<Gap>& gaps() const { return gaps_; }

  enum class Fit {
    kFits,
    kTooLong,    ///< a text that is longer than the keys
    kWrongSize,  ///< no key of this table
  };

  /// The key as the table's core takes it.
  Fit encode(const void* key, size_t size, uint64_t* words) const {
    if (size != keyBytes_) return encodeText(key, size, words);
    const size_t count = (size + 7) / 8;
    words[count - 1] = 0;
    std::memcpy(words, key, size);
    return lengthBytes_ == 0 || isText(words) ? Fit::kFits : Fit::kTooLong;
  }

 private:
  void findText(const std::vector<Field>& key);
  Fit encodeText(const void* key, size_t size, uint64_t* words) const;
  bool isText(const uint64_t* words) const;
  size_t lengthOf(const unsigned char* key) const;

  uint32_t keyBytes_;
  uint32_t valueBytes_;
  uint32_t textBytes_ = 0;    // that a key has room for, which is one text; 0: it is none
  uint32_t lengthAt_ = 0;     // of its length
  uint32_t lengthBytes_ = 0;  // 0: it has none
  std::optional<Description> description_;
  std::vector<zorbe_field> fields_;  // their names are the description's
  std::vector<Gap> gaps_;
};

/// The schema of a program's fields. Throws Error (usage): what cannot be stored, and padding
/// in a key. `keyBytes` and `valueBytes` are 0 for up to the last field.
Schema schemaOf(const std::string& table, const zorbe_field* fields, size_t count,
                uint32_t keyBytes, uint32_t valueBytes);

}  // namespace Zorbe::Table
