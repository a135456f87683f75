// SPDX-License-Identifier: MIT
//
// The list of a struct's fields, which is stored in the table: other programs and languages read
// the records by it, and a reader whose list is the beginning of the table's continues to read
// after fields were appended.
//
//     struct Quote {
//       double bid, ask;
//       uint32_t sizes[2];
//     };
//     ZORBE_FIELDS(Quote, bid, ask, sizes);     // in the namespace of the struct
#pragma once

#include <zorbe/table/text.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace Zorbe::Table {

/// One field of a record.
struct Field {
  std::string name;  ///< as in the struct
  char type;         ///< NumPy's letter: i, u, f, b, S, V
  uint32_t bytes;    ///< of one element
  uint32_t count;    ///< of elements; 0 when it is no array
  uint32_t offset;   ///< in bytes, from the beginning of key or value
};

/// NumPy's letter for a type.
template <class T>
constexpr char typeLetter() {
  if constexpr (std::is_enum_v<T>) {
    return typeLetter<std::underlying_type_t<T>>();
  } else if constexpr (std::is_same_v<T, bool>) {
    return 'b';
  } else if constexpr (std::is_same_v<T, char>) {
    return 'S';
  } else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>) {
    return 'f';
  } else if constexpr (std::is_integral_v<T>) {
    return std::is_signed_v<T> ? 'i' : 'u';
  } else {
    return 'V';
  }
}

/// @cond
template <class T>
struct ElementOf {
  using Type = T;
  static constexpr uint32_t kCount = 0;
};
template <class T, size_t N>
struct ElementOf<T[N]> {
  using Type = T;
  static constexpr uint32_t kCount = N;
};
template <class T, size_t N>
struct ElementOf<std::array<T, N>> : ElementOf<T[N]> {};
/// @endcond

/// Collects fields in the order of the struct.
class FieldList {
 public:
  /// Appends the field of type `T` at `offset`.
  template <class T>
  void add(const std::string& name, size_t offset) {
    addAs(name, offset, static_cast<const T*>(nullptr));
  }

  /// What was added.
  const std::vector<Field>& fields() const { return fields_; }

 private:
  template <size_t N>
  void addAs(const std::string& name, size_t offset, const Text<N>*) {
    push({name, 'S', N, 0, static_cast<uint32_t>(offset)});
    const auto lengthAt = static_cast<uint32_t>(offset + (N > 255 ? N + N % 2 : N));
    push({name + ".length", 'u', N > 255 ? 2u : 1u, 0, lengthAt});
  }

  template <class T>
  void addAs(const std::string& name, size_t offset, const T*) {
    using Element = typename ElementOf<T>::Type;
    static_assert(!std::is_pointer_v<Element>, "a pointer means nothing to another process");
    constexpr char kLetter = typeLetter<Element>();
    constexpr bool kIsText = kLetter == 'S';  // an array of char is one text
    constexpr uint32_t kBytes = kIsText ? sizeof(T) : sizeof(Element);
    push(
        {name, kLetter, kBytes, kIsText ? 0 : ElementOf<T>::kCount, static_cast<uint32_t>(offset)});
  }

  void push(Field field) { fields_.push_back(std::move(field)); }

  std::vector<Field> fields_;
};

}  // namespace Zorbe::Table

/// Declares the fields of a struct, at most 32, in the order of the struct. Stands in the struct's
/// namespace. The struct is trivially copyable and of standard layout.
#define ZORBE_FIELDS(Type, ...)                                                            \
  [[maybe_unused]] inline void zorbeFields(const Type*, ::Zorbe::Table::FieldList& list) { \
    ZORBE_FIELDS_EACH(Type, __VA_ARGS__)                                                   \
  }                                                                                        \
  static_assert(true, "a semicolon follows")

#define ZORBE_FIELD(Type, field) list.add<decltype(Type::field)>(#field, offsetof(Type, field));

// One ZORBE_FIELD for each of up to 32 names.
// clang-format off
#define ZORBE_FIELDS_EACH(Type, ...) \
  ZORBE_FIELDS_PICK(__VA_ARGS__, ZORBE_FIELDS_32, ZORBE_FIELDS_31, ZORBE_FIELDS_30, ZORBE_FIELDS_29, ZORBE_FIELDS_28, ZORBE_FIELDS_27, ZORBE_FIELDS_26, ZORBE_FIELDS_25, ZORBE_FIELDS_24, ZORBE_FIELDS_23, ZORBE_FIELDS_22, ZORBE_FIELDS_21, ZORBE_FIELDS_20, ZORBE_FIELDS_19, ZORBE_FIELDS_18, ZORBE_FIELDS_17, ZORBE_FIELDS_16, ZORBE_FIELDS_15, ZORBE_FIELDS_14, ZORBE_FIELDS_13, ZORBE_FIELDS_12, ZORBE_FIELDS_11, ZORBE_FIELDS_10, ZORBE_FIELDS_9, ZORBE_FIELDS_8, ZORBE_FIELDS_7, ZORBE_FIELDS_6, ZORBE_FIELDS_5, ZORBE_FIELDS_4, ZORBE_FIELDS_3, ZORBE_FIELDS_2, ZORBE_FIELDS_1, )(Type, __VA_ARGS__)
#define ZORBE_FIELDS_PICK(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, a16, a17, a18, a19, a20, a21, a22, a23, a24, a25, a26, a27, a28, a29, a30, a31, a32, picked, ...) picked
#define ZORBE_FIELDS_1(T, a) ZORBE_FIELD(T, a)
#define ZORBE_FIELDS_2(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_1(T, __VA_ARGS__)
#define ZORBE_FIELDS_3(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_2(T, __VA_ARGS__)
#define ZORBE_FIELDS_4(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_3(T, __VA_ARGS__)
#define ZORBE_FIELDS_5(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_4(T, __VA_ARGS__)
#define ZORBE_FIELDS_6(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_5(T, __VA_ARGS__)
#define ZORBE_FIELDS_7(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_6(T, __VA_ARGS__)
#define ZORBE_FIELDS_8(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_7(T, __VA_ARGS__)
#define ZORBE_FIELDS_9(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_8(T, __VA_ARGS__)
#define ZORBE_FIELDS_10(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_9(T, __VA_ARGS__)
#define ZORBE_FIELDS_11(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_10(T, __VA_ARGS__)
#define ZORBE_FIELDS_12(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_11(T, __VA_ARGS__)
#define ZORBE_FIELDS_13(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_12(T, __VA_ARGS__)
#define ZORBE_FIELDS_14(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_13(T, __VA_ARGS__)
#define ZORBE_FIELDS_15(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_14(T, __VA_ARGS__)
#define ZORBE_FIELDS_16(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_15(T, __VA_ARGS__)
#define ZORBE_FIELDS_17(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_16(T, __VA_ARGS__)
#define ZORBE_FIELDS_18(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_17(T, __VA_ARGS__)
#define ZORBE_FIELDS_19(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_18(T, __VA_ARGS__)
#define ZORBE_FIELDS_20(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_19(T, __VA_ARGS__)
#define ZORBE_FIELDS_21(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_20(T, __VA_ARGS__)
#define ZORBE_FIELDS_22(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_21(T, __VA_ARGS__)
#define ZORBE_FIELDS_23(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_22(T, __VA_ARGS__)
#define ZORBE_FIELDS_24(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_23(T, __VA_ARGS__)
#define ZORBE_FIELDS_25(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_24(T, __VA_ARGS__)
#define ZORBE_FIELDS_26(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_25(T, __VA_ARGS__)
#define ZORBE_FIELDS_27(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_26(T, __VA_ARGS__)
#define ZORBE_FIELDS_28(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_27(T, __VA_ARGS__)
#define ZORBE_FIELDS_29(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_28(T, __VA_ARGS__)
#define ZORBE_FIELDS_30(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_29(T, __VA_ARGS__)
#define ZORBE_FIELDS_31(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_30(T, __VA_ARGS__)
#define ZORBE_FIELDS_32(T, a, ...) ZORBE_FIELD(T, a) ZORBE_FIELDS_31(T, __VA_ARGS__)
// clang-format on
