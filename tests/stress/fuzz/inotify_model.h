// SPDX-License-Identifier: MIT
//
// What the bundled loop promises to those who watch paths: each gets exactly the events of
// its own mask that happened while it had its watch, in order, and the end of its directory
// unless it is exempt from that.
#pragma once

#include "support/kernel/fake_inotify.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Zorbe::Test::Fuzz {

class InotifyModel {
 public:
  static constexpr size_t kControls = 4;

  explicit InotifyModel(Kernel::FakeInotify& kernel) : kernel_(kernel) {}

  /// Called right after the control of the loop.
  void add(size_t control, size_t directory, uint32_t mask);
  void remove(size_t control);

  // A turn and its callbacks.
  void beginTurn();
  void changed(size_t control, const std::string& what);
  void deleted(size_t control);
  void error(size_t control, const std::string& what);
  void endTurn(bool thrown);

  /// No event is lost by a mask that is too narrow, and every watch has a user.
  void checkKernel() const;

  /// Once everything is delivered: nobody waits for a watch that the kernel has ended.
  void checkEnds() const;

 private:
  struct Control {
    size_t directory = 0;
    uint32_t mask = 0;
    bool asked = false;
    uint64_t number = 0;    // counts those that asked
    bool orphaned = false;  // refused because its path did not exist
    uint64_t lastEnd = 0;   // when its directory ended
    // The registration.
    int wd = 0;  // 0: nothing is watched
    uint64_t since = 0;
    bool removalReported = false;  // of an entry that another one watches
  };
  /// The report that a control has to receive for an event or a notice.
  struct Report {
    size_t control;
    uint64_t since;  // of the registration
  };
  enum class Kind { kRefusal, kRemoval, kEnd };
  struct Notice {
    size_t control;
    Kind kind;
    std::string what;
    uint64_t turn;
  };
  struct Exemption {
    bool isExempt;
    std::string removal;  // to be reported instead, if any
  };
  enum class Moved { kYes, kGone, kRefused };

  void startTurn();
  bool takeRead();
  void leave(size_t control);
  void enter(size_t control, int wd);
  void refuse(size_t control, int error);
  void reportToParents(size_t control);
  void resumeParents(size_t control);
  void drop(size_t control, bool removalsToo);
  template <class Which>
  void dropNotices(size_t control, Which which) {
    const auto isIts = [&](const Notice& notice) {
      return notice.control == control && which(notice.kind);
    };
    notices_.erase(std::remove_if(notices_.begin(), notices_.end(), isIts), notices_.end());
  }
  bool awaits(size_t control, Kind kind) const;
  std::vector<size_t> othersOf(size_t directory, size_t control) const;

  bool isEnd() const;
  bool isOverflow() const;
  bool concerns(const Report& report) const;
  void take();
  void takeEnd(int wd);
  Exemption exemptionFromEnd(size_t control) const;
  Moved move(size_t control);
  bool settle(const Report& report);
  bool settleNotices();
  bool settleEvents();
  bool settleBehindRead();
  bool settleAll();
  bool next();

  Kernel::FakeInotify& kernel_;
  std::array<Control, kControls> controls_;
  std::map<int, std::vector<size_t>> users_;  // of each watch, in the order in which they joined
  std::deque<Notice> notices_;
  uint64_t asked_ = 0;
  uint64_t turn_ = 1;
  bool interrupted_ = false;
  unsigned callbacks_ = 0;  // in this turn

  // Read and not reported yet.
  std::deque<Kernel::InotifyEvent> events_;
  size_t admitted_ = 0;    // of them, to this turn
  bool readDone_ = false;  // in this turn, by the loop itself
  Kernel::InotifyEvent event_ = {};
  std::deque<Report> due_;
  bool expectEnd_ = false;     // the first report that is due is an end
  std::string expectRemoval_;  // or the removal of this entry
  bool settled_ = false;       // the two members before are valid
  std::set<int> lost_;         // watches whose end was lost in an overflow
};

}  // namespace Zorbe::Test::Fuzz
