// SPDX-License-Identifier: MIT
#pragma once

namespace Zorbe {

/// Stores a last value in a member of an object that is being destroyed, where the compiler
/// would drop a plain store. Code that still uses the object reads null, not a stale value.
template <typename Value>
void lastStore(Value& member, Value value) {
  *static_cast<volatile Value*>(&member) = value;
}

}  // namespace Zorbe
