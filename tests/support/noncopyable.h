// SPDX-License-Identifier: MIT
#pragma once

namespace Zorbe::Test {

/// A base of classes whose objects are neither copied nor moved.
class NonCopyable {
 public:
  NonCopyable(const NonCopyable&) = delete;
  NonCopyable& operator=(const NonCopyable&) = delete;

 protected:
  NonCopyable() = default;
  ~NonCopyable() = default;
};

}  // namespace Zorbe::Test
