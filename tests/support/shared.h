// SPDX-License-Identifier: MIT
#pragma once

#include "support/noncopyable.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cerrno>
#include <new>
#include <system_error>

namespace Zorbe::Test {

/// A value in memory that a test and its children share, made by its default constructor. Its
/// members are lock-free atomics.
template <class T>
class Shared : private NonCopyable {
 public:
  Shared() {
    void* const memory =
        ::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    value_ = new (memory) T{};
  }
  ~Shared() { EXPECT_EQ(::munmap(value_, sizeof(T)), 0); }

  T& operator*() { return *value_; }
  T* operator->() { return value_; }

 private:
  T* value_;
};

}  // namespace Zorbe::Test
