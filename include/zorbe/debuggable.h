// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>
#include <zorbe/export.h>

namespace Brask {

/// Base of every class that logs: keeps the handler that the messages go to.
class ZORBE_EXPORT Debuggable {
 public:
  /// Refers to the client's handler, which has to outlive this object.
  explicit Debuggable(Platform::DebugHandler& debugHandler);

  /// Copies refer to the same handler; at most one of them may own it.
  Debuggable(const Debuggable&) = default;
  Debuggable& operator=(const Debuggable&) = default;  ///< as above

  /// Deletes the handler if `ownsHandler` is true, then sets `handler` to null.
  virtual ~Debuggable();

 protected:
  Platform::DebugHandler* handler;  ///< where messages go; the client's
  bool ownsHandler = false;         ///< the library owns no client's handler
};

}  // namespace Brask
