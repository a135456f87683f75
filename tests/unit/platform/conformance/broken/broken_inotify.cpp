// SPDX-License-Identifier: MIT
//
// Controls of watched paths.
#include "broken.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

namespace Zorbe::Conformance::Broken {

using Brask::Platform::InotifyControl;
using Brask::Platform::InotifyHandler;

namespace {

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

uint32_t changed(uint32_t mask) {
  if (breaks("WatchConformance.ReportsNothingThatTheMaskDoesNotAskFor")) return mask | IN_CREATE;
  if (breaks("WatchConformance.ReportsEntriesThatAreMoved")) return mask & ~uint32_t{IN_MOVED_TO};
  if (breaks("WatchConformance.ReportsThatTheWatchedDirectoryWasMoved")) {
    return mask & ~uint32_t{IN_MOVE_SELF};
  }
  if (breaks("WatchConformance.RefusesAFileWhereTheMaskAsksForADirectory")) {
    return mask & ~uint32_t{IN_ONLYDIR};
  }
  return mask;
}

class InotifyLink : public Link, public InotifyHandler {
 public:
  explicit InotifyLink(InotifyHandler* handler)
      : handler_(handler), control_(bundledInotify(this)) {
    all().insert(this);
  }
  ~InotifyLink() override { all().erase(this); }

  void inotifyError(const std::string& what) override;
  void inotifyDeleted() override;
  void inotifyChanged(const std::string& what) override;
  void addWatch(const std::string& path, uint32_t mask);
  void removeWatch();
  std::string path() const {
    return path_ + (breaks("WatchConformance.ReturnsThePathOfTheLastWatch") ? "/" : "");
  }

 private:
  static std::set<InotifyLink*>& all() {
    static std::set<InotifyLink*> links;
    return links;
  }
  void drop() override {
    endOthers();
    control_.reset();
    former_.clear();
  }
  // The kernel has one watch for a directory, which a careless loop removes for all.
  void endOthers() {
    if (!breaks("WatchConformance.AControlThatEndsTakesNothingFromTheOthersOfItsDirectory")) return;
    forOthersOfThePath([](InotifyLink& other) { other.control_->removeWatch(); });
  }
  void forOthersOfThePath(const std::function<void(InotifyLink&)>& action) {
    for (InotifyLink* const link : all()) {
      if (link != this && link->control_ && link->path_ == path_) action(*link);
    }
  }
  void changedEarlier() {
    const auto names = std::move(earlier_);
    earlier_.clear();
    for (const auto& name : names) report(name);
  }
  void report(const std::string& what) {
    call([this, &what] { handler_->inotifyChanged(what); });
  }
  void replaceControl();

  InotifyHandler* const handler_;
  std::unique_ptr<InotifyControl> control_;
  std::vector<std::unique_ptr<InotifyControl>> former_;
  std::vector<std::string> earlier_;
  std::string path_;
  bool isEnding_ = false;
};

void InotifyLink::inotifyError(const std::string& what) {
  if (breaks(exists(path_) ? "WatchConformance.ReportsThatEventsWereLost"
                           : "WatchConformance.ReportsAPathThatCannotBeWatched")) {
    return;
  }
  call([this, &what] { handler_->inotifyError(what); });
}

void InotifyLink::inotifyDeleted() {
  if (!exists(path_) && breaks("WatchConformance.ReportsTheEndOnceAfterTheChanges")) return;
  if (exists(path_) && breaks("WatchConformance.AReplacedDirectoryIsWatchedOrItsEndReported")) {
    return;
  }
  const auto self = shared_from_this();
  isEnding_ = true;
  call([this] { handler_->inotifyDeleted(); });
  isEnding_ = false;
}

void InotifyLink::inotifyChanged(const std::string& what) {
  const auto self = shared_from_this();
  changedEarlier();
  std::string text = what;
  if (breaks("WatchConformance.ReportsTheNamesOfEntriesInTheOrderOfTheirChanges")) {
    text = path_ + "/" + what;
  }
  if (what == path_ && breaks("WatchConformance.ReportsTheWatchedPathWhereAnEventHasNoName")) {
    text.clear();
  }
  report(text);
  // The control is spared the end of its directory, and its watch stays behind.
  if (what == "entry" && breaks("WatchConformance.AReplacedParentIsWatchedOrItsEndReported")) {
    control_->removeWatch();
  }
}

void InotifyLink::replaceControl() {
  if (!path_.empty() && breaks("WatchConformance.AnotherPathReplacesTheFirst")) {
    former_.push_back(std::move(control_));
    control_.reset(bundledInotify(this));
  }
  if (breaks("WatchConformance.WatchingThePathAgainInTheHandlerLosesNoEvent")) {
    control_.reset(bundledInotify(this));
  }
}

void InotifyLink::addWatch(const std::string& path, uint32_t mask) {
  if (isEnding_ && breaks("WatchConformance.WatchesADirectoryThatTheHandlerOfItsEndMakesAgain")) {
    return;
  }
  if (path != path_) endOthers();
  replaceControl();
  path_ = path;
  control_->addWatch(path, changed(mask));
  if (breaks("WatchConformance.EachControlOfADirectoryGetsTheEventsOfItsOwnMask")) {
    forOthersOfThePath([&](InotifyLink& other) { other.control_->addWatch(path, mask); });
  }
  if (exists(path) && breaks("WatchConformance.ReportsNothingFromBeforeTheWatch")) {
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      earlier_.push_back(entry.path().filename().string());
    }
  }
  if (!exists(path) && breaks("WatchConformance.AddWatchCallsNoHandler")) inotifyError(path);
}

void InotifyLink::removeWatch() {
  if (breaks("WatchConformance.RemoveWatchEndsTheEvents")) return;
  endOthers();
  control_->removeWatch();
}

class BrokenInotifyControl : public Control<InotifyControl, InotifyLink> {
 public:
  using Control::Control;
  void addWatch(std::string path, uint32_t mask) override { link_->addWatch(path, mask); }
  void removeWatch() override { link_->removeWatch(); }
  std::string path() override { return link_->path(); }
};

}  // namespace
}  // namespace Zorbe::Conformance::Broken

Brask::Platform::InotifyControl* Brask::Platform::getInotifyControl(InotifyHandler* handler) {
  namespace Broken = Zorbe::Conformance::Broken;
  return new Broken::BrokenInotifyControl(std::make_shared<Broken::InotifyLink>(handler));
}
