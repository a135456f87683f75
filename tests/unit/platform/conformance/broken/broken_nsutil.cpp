// SPDX-License-Identifier: MIT
//
// Namespaces. The bundled functions are asked in the calling thread, whose trace they keep.
#include "broken.h"

#include <fcntl.h>
#include <nsutil/nsutil.h>
#include <sched.h>

#include <cerrno>
#include <string>

using Zorbe::Conformance::Broken::breaks;
using Zorbe::Conformance::Broken::bundled;

namespace {

std::string lastTrace;

int refuse(int error) {
  errno = error;
  return -1;
}

void leakADescriptor() {
  static_cast<void>(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

int enter(const char* name, int nstype) {
  if (breaks("EnteredNamespaceConformance.ANamespaceOfAnotherTypeIsRefused")) nstype = 0;
  const int result = bundled<int(const char*, int)>("setnsByName")(name, nstype);
  const int error = errno;
  if (result != 0) lastTrace = bundled<const char*()>("netnsGetTracebuffer")();
  errno = error;
  return result;
}

}  // namespace

int setnsByName(const char* name, int nstype) {
  const bool isDefault = std::string(name) == "default";
  if (isDefault &&
      breaks(
          "EnteredNamespaceConformance.DefaultIsTheNamespaceOfProcessOneUnlessAFileHasTheName")) {
    return 0;
  }
  if (breaks("EnteredNamespaceConformance.AThreadEntersANamespaceByItsNameAndReturns")) return 0;
  if (nstype == 0 && breaks("EnteredNamespaceConformance.AnyTypeWillDoWhereNoneIsAskedFor")) {
    return refuse(EINVAL);
  }
  const int result = enter(name, nstype);
  if (result != 0 && breaks("NamespaceConformance.AnUnknownNameIsRefusedWithTheReasonInErrno")) {
    return refuse(0);
  }
  const int error = errno;
  if (breaks(result == 0 ? "EnteredNamespaceConformance.EnteringLeavesNoDescriptorOpen"
                         : "NamespaceConformance.ARefusalLeavesNoDescriptorOpen")) {
    leakADescriptor();
  }
  errno = error;
  return result;
}

const char* netnsGetTracebuffer(void) {
  if (breaks("NamespaceConformance.TheTraceNamesWhatWasRefusedAndTheReason")) return "refused";
  if (breaks("NamespaceConformance.TheTraceIsEmptyBeforeTheFirstFailure")) return nullptr;
  if (breaks("NamespaceConformance.EachThreadHasATraceOfItsOwn")) return lastTrace.c_str();
  return bundled<const char*()>("netnsGetTracebuffer")();
}
