// SPDX-License-Identifier: MIT
#include <zorbe/mounter.h>

#include "foundation/last_store.h"
#include "foundation/log.h"

namespace Zorbe {

MounterSmBase::MounterSmBase(Brask::Platform::DebugHandler& debugHandler)
    : Debuggable(debugHandler), control(Brask::Platform::getInotifyControl(this)) {}

MounterSmBase::~MounterSmBase() {
  ZORBE_LOG_NOEXCEPT(*handler, kStep, "MounterSmBase::~MounterSmBase()");
  if (control) {
    ZORBE_LOG_NOEXCEPT(*handler, kStep,
                       "MounterSmBase::~MounterSmBase() deleting watch:" << control->path());
    control.reset();
  }
  lastStore(watching, false);
}

}  // namespace Zorbe
