// SPDX-License-Identifier: MIT
//
// How the types of a program become the bytes of a table.
#pragma once

#include <zorbe/table/fields.h>
#include <zorbe/table/schema.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#pragma GCC visibility push(default)

namespace Zorbe::Table {

/// The schema of these fields. Throws Error (usage) when the description is too long, when a field
/// overlaps the one before it, or when a name is empty or has a blank or a control character.
/// `table` is the table's name, for that error.
Schema makeSchema(const std::vector<Field>& key, uint32_t keyBytes, const std::vector<Field>& value,
                  uint32_t valueBytes, const std::string& table = "");

/// The fields that a schema describes. Nothing when its description is not well-formed or a
/// field lies outside of key or value.
struct Description {
  std::vector<Field> key;    ///< in the order of the struct
  std::vector<Field> value;  ///< as above
};
std::optional<Description> parseDescription(const Schema& schema);

/// Whether a program whose own schema is `own` can read a table of schema `table`: the same key,
/// and values that begin like its own.
bool canRead(const Schema& own, const Schema& table);

/// Bytes of a value that belong to no field: offset and length.
using Gap = std::pair<uint32_t, uint32_t>;
std::vector<Gap> gapsOf(const std::vector<Field>& fields, uint32_t bytes);

/// A key for messages, as its fields are: numbers, text, or bytes in hexadecimal digits.
std::string printKey(const Schema& schema, const void* key);

}  // namespace Zorbe::Table

#pragma GCC visibility pop

namespace Zorbe::Table {

template <class T, class = void>
struct IsDescribed : std::false_type {};
template <class T>
struct IsDescribed<T, std::void_t<decltype(zorbeFields(static_cast<const T*>(nullptr),
                                                       std::declval<FieldList&>()))>>
    : std::true_type {};

template <class T>
struct IsText : std::false_type {};
template <size_t N>
struct IsText<Text<N>> : std::true_type {};

/// The fields of a type; one named `name` when it is no struct.
template <class T>
std::vector<Field> fieldsOf(const std::string& name) {
  static_assert(!std::is_class_v<T> || IsText<T>::value || IsDescribed<T>::value,
                "write ZORBE_FIELDS(Type, field, ...) beside the struct, in its namespace");
  FieldList list;
  if constexpr (IsDescribed<T>::value) {
    zorbeFields(static_cast<const T*>(nullptr), list);
  } else {
    list.add<T>(name, 0);
  }
  return list.fields();
}

/// @cond
template <class K>
struct KeyArgument {
  using Type = const K&;
};
template <size_t N>
struct KeyArgument<Text<N>> {
  using Type = std::string_view;
};
/// @endcond

/// What get() and its like take for a key of type K: std::string_view for a Text, else const K&.
template <class K>
using KeyArg = typename KeyArgument<K>::Type;

/// A key as the table's core takes it: whole words, padded with zero bytes.
template <class K>
using KeyWords = std::array<uint64_t, (sizeof(K) + 7) / 8>;

/// Between a program's key and value types and a table's bytes.
template <class K, class V>
class Codec {
  static_assert(std::is_trivially_copyable_v<K> && std::is_trivially_copyable_v<V>,
                "keys and values are copied as bytes: they have to be trivially copyable");
  static_assert(!std::is_floating_point_v<K>,
                "a floating-point key has several representations of one value: use an integer, "
                "such as the price in ten-thousandths");
  static_assert(std::has_unique_object_representations_v<K>,
                "equal keys need equal bytes: no floating point in a key, and no gaps (add a field "
                "that is always zero)");
  static_assert(sizeof(K) <= 1024, "a key has at most 1024 bytes");
  static_assert(sizeof(V) <= (1u << 20), "a value has at most 1 MiB");

 public:
  /// Throws Error (usage): see makeSchema.
  explicit Codec(const std::string& keyName, const std::string& table = "")
      : schema_(
            makeSchema(fieldsOf<K>(keyName), sizeof(K), fieldsOf<V>("value"), sizeof(V), table)),
        gaps_(gapsOf(fieldsOf<V>("value"), sizeof(V))) {}

  /// What the table's description says about these types.
  const Schema& schema() const { return schema_; }

  /// Nothing when the key does not fit into its type.
  static std::optional<KeyWords<K>> encode(KeyArg<K> key) {
    KeyWords<K> words{};
    if constexpr (IsText<K>::value) {
      if (!K::fits(key)) return std::nullopt;
      const K text(key);
      std::memcpy(words.data(), &text, sizeof text);
    } else {
      std::memcpy(words.data(), &key, sizeof key);
    }
    return words;
  }

  /// The key that encode() was given.
  static K decode(const KeyWords<K>& words) {
    K key{};
    std::memcpy(static_cast<void*>(&key), words.data(), sizeof key);
    return key;
  }

  /// Calls `use(bytes)` with the value's bytes, those between the fields being zero: other users
  /// can read the files, and must not see former content of this program's stack.
  template <class Use>
  void withBytes(const V& value, Use use) const {
    if (gaps_.empty()) return use(static_cast<const void*>(&value));
    alignas(V) unsigned char bytes[sizeof(V)];
    std::memcpy(bytes, &value, sizeof value);
    for (const auto& [offset, length] : gaps_) std::memset(bytes + offset, 0, length);
    use(static_cast<const void*>(bytes));
  }

 private:
  Schema schema_;
  std::vector<Gap> gaps_;
};

}  // namespace Zorbe::Table
