// SPDX-License-Identifier: MIT
//
// The layout of classes. Clients are built against these headers and linked with other versions
// of the libraries, so slots and members keep their places. Reads pointers to members as the
// Itanium C++ ABI represents them, and Arm's variant, where functions may have odd addresses.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

namespace Zorbe::Test {

/// The slot of a virtual function in the class's own table of them; slots 0 and 1 are the
/// destructors.
template <class Class, class Function>
std::ptrdiff_t slotOf(Function Class::*function) {
  struct {
    std::ptrdiff_t offset;
    std::ptrdiff_t adjustment;
  } representation;
  static_assert(sizeof representation == sizeof function);
  std::memcpy(&representation, &function, sizeof representation);
#if defined(__arm__) || defined(__aarch64__)
  const bool isVirtual = representation.adjustment % 2 == 1;
  representation.adjustment /= 2;
#else
  const bool isVirtual = representation.offset % 2 == 1;
  --representation.offset;
#endif
  EXPECT_TRUE(isVirtual);
  EXPECT_EQ(representation.adjustment, 0) << "declared in another class than the first base";
  return representation.offset / static_cast<std::ptrdiff_t>(sizeof(void*));
}

/// How many slots a class has: the next virtual function of a derived class gets this one.
template <class Class>
struct Slots : Class {
  using Class::Class;
  virtual void next() = 0;
  static std::ptrdiff_t count() { return slotOf(&Slots::next); }
};

/// The offset of a member in the class that declares it.
template <class Class, class Type>
std::ptrdiff_t offsetOf(Type Class::*member) {
  std::ptrdiff_t offset = -1;
  static_assert(sizeof offset == sizeof member);
  std::memcpy(&offset, &member, sizeof offset);
  return offset;
}

template <class Derived, class Base>
std::ptrdiff_t baseOffset() {
  alignas(Derived) static unsigned char storage[sizeof(Derived)];
  auto* const derived = reinterpret_cast<Derived*>(storage);
  return reinterpret_cast<unsigned char*>(static_cast<Base*>(derived)) - storage;
}

/// Both members have the same type (or this does not compile) and the same place.
template <class Class, class Mirror, class Type>
void expectSame(Type Class::*member, Type Mirror::*mirrored, const char* name) {
  EXPECT_EQ(offsetOf(member), offsetOf(mirrored)) << name;
}

}  // namespace Zorbe::Test

/// `Probe` is a class that may look at the members, `Mirror` one that repeats them in order.
#define ZORBE_EXPECT_SAME(member) expectSame(&Probe::member, &Mirror::member, #member)
