// SPDX-License-Identifier: MIT
#include "broken.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <nsutil/nsutil.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

namespace Zorbe::Conformance::Broken {

using namespace Brask::Platform;

namespace {

std::string broken;

// Controls that call on although they were deleted.
std::vector<std::shared_ptr<Link>>& kept() {
  static std::vector<std::shared_ptr<Link>> all;
  return all;
}

}  // namespace

int Link::anyCalling = 0;

bool breaks(std::string_view promise) {
  return promise == broken;
}

void* bundledFunction(const char* symbol) {
  void* const function = ::dlsym(RTLD_NEXT, symbol);
  if (function == nullptr) throw std::runtime_error(std::string("the platform has no ") + symbol);
  return function;
}

FdControl* bundledFd(FdEventHandler* handler) {
  return bundled<FdControl*(FdEventHandler*)>(
      "_ZN5Brask8Platform12getFdControlEPNS0_14FdEventHandlerE")(handler);
}

TimerControl* bundledTimer(TimeoutHandler* handler) {
  return bundled<TimerControl*(TimeoutHandler*)>(
      "_ZN5Brask8Platform15getTimerControlEPNS0_14TimeoutHandlerE")(handler);
}

InotifyControl* bundledInotify(InotifyHandler* handler) {
  return bundled<InotifyControl*(InotifyHandler*)>(
      "_ZN5Brask8Platform17getInotifyControlEPNS0_14InotifyHandlerE")(handler);
}

void Link::call(const std::function<void()>& handler) {
  const auto self = shared_from_this();
  ++calling_;
  ++anyCalling;
  if (breaks("HandlerConformance.AreCalledOnTheThreadThatTurnsTheLoop")) {
    std::thread(handler).join();
  } else {
    handler();
  }
  --anyCalling;
  --calling_;
}

bool Link::keepsCalling() const {
  if (!isAnyCalling()) return breaks("HandlerConformance.ADeletedControlCallsNoMore");
  return breaks(isCalling() ? "HandlerConformance.MayDeleteItsOwnControl"
                            : "HandlerConformance.MayDeleteAnotherControlThatIsReady");
}

void Link::end() {
  if (keepsCalling()) {
    kept().push_back(shared_from_this());
  } else {
    drop();
  }
}

}  // namespace Zorbe::Conformance::Broken

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc == 3 && std::string_view(argv[1]) == "--break") {
    Zorbe::Conformance::Broken::broken = argv[2];
  } else if (argc != 1) {
    std::fprintf(stderr, "usage: %s [--break PROMISE]\n", argv[0]);
    return 2;
  }
  if (Zorbe::Conformance::Broken::breaks("NamespaceConformance.TheDefaultIsCalledDefault")) {
    DEFAULT_NS = "main";
  }
  return RUN_ALL_TESTS();
}
