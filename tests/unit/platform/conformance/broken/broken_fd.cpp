// SPDX-License-Identifier: MIT
//
// Controls of descriptors.
#include "broken.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>
#include <set>
#include <stdexcept>

namespace Zorbe::Conformance::Broken {

using Brask::Platform::FdControl;
using Brask::Platform::FdEventHandler;

namespace {

short eventsOf(int fd) {
  pollfd state{fd, POLLIN, 0};
  return ::poll(&state, 1, 0) == 1 ? state.revents : short{0};
}

bool isAtItsEnd(int fd) {
  char byte;
  return ::recv(fd, &byte, sizeof byte, MSG_PEEK) == 0;
}

bool isListening(int fd) {
  int listening = 0;
  socklen_t length = sizeof listening;
  return ::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) == 0 && listening != 0;
}

class FdLink : public Link, public FdEventHandler {
 public:
  explicit FdLink(FdEventHandler* handler) : handler_(handler), control_(bundledFd(this)) {
    isUseless_ = isAnyCalling() && breaks("HandlerConformance.MayMakeControls");
  }
  ~FdLink() override { forget(); }

  void fdEvent(int fd) override;
  void watch(int fd);
  void unwatch();
  int fd() const {
    const bool isZero =
        fd_ < 0 && breaks("DescriptorConformance.ReturnsTheWatchedDescriptorOrMinusOne");
    return isZero ? 0 : fd_;
  }

 private:
  void drop() override {
    forget();
    close("DescriptorConformance.ClosesNoDescriptor");
    control_.reset();
    former_.clear();
    later_.reset();
  }
  void forget() {
    const auto found = watching().find(fd_);
    if (found != watching().end() && found->second == this) watching().erase(found);
  }
  void close(const char* promise) const {
    if (fd_ >= 0 && breaks(promise)) ::close(fd_);
  }
  static std::map<int, FdLink*>& watching() {
    static std::map<int, FdLink*> all;
    return all;
  }

  bool swallows(int fd);
  bool ignoresWatch(int fd);
  void startWatching(int fd);
  void report(int fd) {
    call([this, fd] { handler_->fdEvent(fd); });
  }
  static std::vector<int> othersThatAreReady(int fd);

  FdEventHandler* const handler_;
  std::unique_ptr<FdControl> control_;
  std::vector<std::unique_ptr<FdControl>> former_;
  std::unique_ptr<Later> later_;
  int fd_ = -1;
  int reported_ = 0;
  bool wasReady_ = false;
  bool isUseless_ = false;
};

bool FdLink::swallows(int fd) {
  return isUseless_ ||
         (reported_++ > 0 && breaks("DescriptorConformance.ReportsDataForAsLongAsThereIsSome")) ||
         (wasReady_ && breaks("DescriptorConformance.ReportsDataFromBeforeItWasWatched")) ||
         (breaks("DescriptorConformance.ReportsTheEndOfAConnection") && isAtItsEnd(fd)) ||
         (breaks("DescriptorConformance.ReportsAnError") && (eventsOf(fd) & POLLERR) != 0) ||
         (breaks("DescriptorConformance.ReportsAConnectionToAListeningSocket") && isListening(fd));
}

std::vector<int> FdLink::othersThatAreReady(int fd) {
  std::vector<int> ready;
  if (!breaks("DescriptorConformance.ANumberThatIsUsedAgainInATurnInheritsNoEvent")) return ready;
  for (const auto& [number, link] : watching()) {
    if (number != fd && eventsOf(number) != 0) ready.push_back(number);
  }
  return ready;
}

void FdLink::fdEvent(int fd) {
  const auto self = shared_from_this();
  if (swallows(fd)) return;
  const auto others = othersThatAreReady(fd);
  report(fd + (breaks("DescriptorConformance.PassesTheDescriptorThatIsReady") ? 1 : 0));
  for (const int other : others) {
    const auto found = watching().find(other);
    if (found != watching().end()) found->second->report(other);
  }
  if (!breaks("TimerConformance.ABusyDescriptorHoldsUpNoTimer")) return;
  for (int more = 0; more < 10000 && fd_ == fd && eventsOf(fd) != 0; ++more) report(fd);
}

bool FdLink::ignoresWatch(int fd) {
  static std::set<int> numbers;
  const bool isKnown = !numbers.insert(fd).second;
  return (isKnown && breaks("DescriptorConformance.WatchesANumberThatWasWatchedBefore")) ||
         (isCalling() && breaks("DescriptorConformance.AHandlerMayWatchAnotherDescriptor"));
}

void FdLink::startWatching(int fd) {
  const bool isRefusedSilently =
      breaks("DescriptorConformance.RefusesWhatCannotBeWatchedWithAnException");
  try {
    control_->watch(fd);
  } catch (...) {
    fd_ = -1;
    if (!isRefusedSilently) throw;
  }
}

void FdLink::watch(int fd) {
  if (ignoresWatch(fd)) return;
  if (fd_ >= 0 && breaks("DescriptorConformance.WatchingAnotherReplacesTheFirst")) {
    former_.push_back(std::move(control_));
    control_.reset(bundledFd(this));
  }
  forget();
  wasReady_ = eventsOf(fd) != 0;
  reported_ = 0;
  fd_ = fd;
  startWatching(fd);
  if (fd_ >= 0) watching()[fd_] = this;
  if (breaks("DescriptorConformance.MakesTheDescriptorNonBlocking")) ::fcntl(fd, F_SETFL, 0);
  if (wasReady_ && breaks("DescriptorConformance.WatchCallsNoHandler")) report(fd);
  if (breaks("DescriptorConformance.DoesNotReportThatADescriptorCanBeWritten")) {
    later_ = std::make_unique<Later>([this] { report(fd_); });
    later_->start();
  }
}

void FdLink::unwatch() {
  if (breaks("DescriptorConformance.UnwatchEndsTheEvents")) return;
  if (isAnyCalling() && !isCalling() &&
      breaks("DescriptorConformance.UnwatchHoldsForTheTurnInWhichADescriptorIsReady")) {
    return;
  }
  if (breaks("DescriptorConformance.UnwatchIsHarmlessTwiceAndAfterClose") &&
      ::fcntl(fd_, F_GETFD) < 0) {
    throw std::logic_error("unwatch() without a descriptor");
  }
  close("DescriptorConformance.ClosesNoDescriptor");
  forget();
  fd_ = -1;
  control_->unwatch();
}

class BrokenFdControl : public Control<FdControl, FdLink> {
 public:
  using Control::Control;
  void watch(int fd) override { link_->watch(fd); }
  void unwatch() override { link_->unwatch(); }
  int fd() override { return link_->fd(); }
};

std::shared_ptr<FdLink> linkOf(FdEventHandler* handler) {
  if (!breaks("HandlerConformance.MayHaveSeveralControls"))
    return std::make_shared<FdLink>(handler);
  static std::map<FdEventHandler*, std::weak_ptr<FdLink>> links;
  auto link = links[handler].lock();
  if (!link) links[handler] = link = std::make_shared<FdLink>(handler);
  return link;
}

}  // namespace
}  // namespace Zorbe::Conformance::Broken

Brask::Platform::FdControl* Brask::Platform::getFdControl(FdEventHandler* handler) {
  namespace Broken = Zorbe::Conformance::Broken;
  return new Broken::BrokenFdControl(Broken::linkOf(handler));
}
