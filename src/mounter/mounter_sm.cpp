// SPDX-License-Identifier: MIT
#include <sys/inotify.h>
#include <zorbe/mounter.h>

#include "foundation/log.h"

namespace Zorbe {

const uint32_t MounterSm::MOUNTER_DEFAULT_MASK = IN_CLOSE_WRITE | IN_DELETE;

MounterSm::MounterSm(Brask::Platform::DebugHandler& debugHandler, const std::string& tableName,
                     MounterBase* mounterClient)
    : MounterSmBase(debugHandler),
      name(tableName),
      client(mounterClient),
      rootPath(debugHandler, name, true),
      parent(debugHandler, this, rootPath.path) {
  if (!rootPath.initialized) {
    ZORBE_LOG(*handler, kNotable,
              "MounterSm::MounterSm() failed to initialize rootPath: " << rootPath.path);
    return;
  }
  control->addWatch(rootPath.path, MOUNTER_DEFAULT_MASK);
  watching = true;
  ZORBE_LOG(*handler, kMilestone, "MounterSm::MounterSm() successfully initialized");
}

MounterSm::~MounterSm() = default;

void MounterSm::inotifyError(const std::string& what) {
  client->rootChanged(what);
}

void MounterSm::inotifyChanged(const std::string& what) {
  client->rootChanged(what);
}

void MounterSm::inotifyDeleted() {
  rootPath = RootPath(*handler, name, true);
  if (!rootPath.initialized) {
    ZORBE_LOG(*handler, kNotable,
              "MounterSm::inotifyDeleted() failed to initialize rootPath: " << rootPath.path);
    return;
  }
  control->addWatch(rootPath.path, MOUNTER_DEFAULT_MASK);
  watching = true;  // the first watch, when there was no directory before
  client->rootChanged("watch deleted");
}

}  // namespace Zorbe
