// SPDX-License-Identifier: MIT
#include <zorbe/debuggable.h>

#include "foundation/last_store.h"

namespace Brask {

Debuggable::Debuggable(Platform::DebugHandler& debugHandler) : handler(&debugHandler) {}

Debuggable::~Debuggable() {
  if (ownsHandler) delete handler;
  Zorbe::lastStore<Platform::DebugHandler*>(handler, nullptr);
}

}  // namespace Brask
