// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

namespace Zorbe::Test {

/// An object that can still be looked at when it has been destroyed.
template <class Object>
class Corpse {
 public:
  template <class... Args>
  explicit Corpse(Args&&... args) : object_(new (storage_) Object(std::forward<Args>(args)...)) {}

  Object* operator->() { return object_; }

  /// Destroys the object, and returns what is then where this member of it was.
  template <class Value>
  Value leftBehind(Value& member) {
    const std::ptrdiff_t place = reinterpret_cast<unsigned char*>(&member) - storage_;
    object_->~Object();
    Value left;
    std::memcpy(&left, storage_ + place, sizeof left);
    return left;
  }

 private:
  alignas(Object) unsigned char storage_[sizeof(Object)] = {};
  Object* object_;
};

}  // namespace Zorbe::Test
