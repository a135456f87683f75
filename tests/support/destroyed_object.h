// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

namespace Zorbe::Test {

/// An object whose memory can be read after its destruction.
template <class Object>
class DestroyedObject {
 public:
  template <class... Args>
  explicit DestroyedObject(Args&&... args)
      : object_(new (storage_) Object(std::forward<Args>(args)...)) {}

  Object* operator->() { return object_; }

  /// Destroys the object, and returns the bytes that are then where this member was.
  template <class Value>
  Value destroyAndRead(Value& member) {
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
