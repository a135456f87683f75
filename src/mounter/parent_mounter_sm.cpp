// SPDX-License-Identifier: MIT
#include <sys/inotify.h>
#include <zorbe/exceptions.h>
#include <zorbe/mounter.h>

#include "foundation/log.h"

namespace Zorbe {

const uint32_t ParentMounterSm::PARENT_MASK = IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE;

ParentMounterSm::ParentMounterSm(Brask::Platform::DebugHandler& debugHandler,
                                 Brask::Platform::InotifyHandler* childHandler,
                                 const std::string& path)
    : MounterSmBase(debugHandler), child(childHandler) {
  const std::size_t end = path.find_last_not_of('/');
  const std::size_t slash = end == std::string::npos ? std::string::npos : path.rfind('/', end);
  if (slash == std::string::npos) {
    Log::fail<Brask::RuntimeException>(
        *handler,
        ZORBE_TEXT(
            "ParentMounterSm::ParentMounterSm() failed to find child name for path: " << path));
  }
  parentPath = path.substr(0, slash);
  childName = path.substr(slash + 1, end - slash);
  control->addWatch(parentPath, PARENT_MASK);
  watching = true;
  ZORBE_LOG(*handler, kStep,
            "ParentMounterSm::ParentMounterSm() successfully initialized with path:"
                << parentPath << " and child name: " << childName);
}

ParentMounterSm::~ParentMounterSm() = default;

void ParentMounterSm::inotifyChanged(const std::string& what) {
  ZORBE_LOG(*handler, kStep,
            "ParentMounterSm::inotifyChanged() what: " << what << " childName: " << childName);
  if (what != childName) return;
  child->inotifyDeleted();
  control->addWatch(parentPath, PARENT_MASK);
}

void ParentMounterSm::inotifyError(const std::string& what) {
  ZORBE_LOG(*handler, kFailure,
            "ParentMounterSm::inotifyError() received error: " << what << ", notifying child");
  child->inotifyError(what);
}

void ParentMounterSm::inotifyDeleted() {
  Log::fail<Brask::RuntimeException>(
      *handler,
      "ParentMounterSm::inotifyDeleted() received IN_DELETE_SELF or IN_MOVE_SELF but no such "
      "flag should be set");
}

}  // namespace Zorbe
