// SPDX-License-Identifier: MIT
//
// What the bundled loop promises to those who watch paths of which none lies in another:
// each gets exactly the events of its own mask, in order.
#pragma once

#include "support/kernel/fake_inotify.h"

#include <array>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Zorbe::Test::Fuzz {

class InotifyModel {
 public:
  static constexpr size_t controls = 4;

  explicit InotifyModel(Kernel::FakeInotify& kernel) : kernel_(kernel) {}

  /// `found` is the result of the kernel for the path: the watch that it has now, or an errno as a
  /// negative number.
  void add(size_t control, const std::string& path, uint32_t mask, int found);
  enum class Keep { watch, nothing };
  void remove(size_t control, Keep keep = Keep::nothing);

  // A turn, and what comes in it.
  void beginTurn() { ++turn_; }
  void changed(size_t control, const std::string& what);
  void deleted(size_t control);
  void error(size_t control, const std::string& what);
  void endTurn(bool thrown);

  /// No event is lost by a mask that is too narrow, and no watch is kept without a control.
  void checkKernel() const;

 private:
  struct Control {
    std::string path;
    int wd = 0;  // 0: nothing is watched
    uint32_t mask = 0;
    uint64_t id = 0;  // of the registration
  };
  struct Told {
    size_t control;
    uint64_t id;
  };
  struct Notice {
    size_t control;
    std::string what;
    uint64_t turn;
  };

  void leave(size_t control);
  bool isEnd() const;
  bool isOverflow() const;
  bool concerns(const Told& told) const;
  bool advance();
  void take();

  Kernel::FakeInotify& kernel_;
  std::array<Control, controls> controls_;
  std::map<int, std::vector<size_t>> users_;  // of each watch, in the order of their coming
  std::deque<Notice> notices_;
  uint64_t registrations_ = 0;
  uint64_t turn_ = 1;

  // What was read and has not been delivered.
  std::deque<Kernel::InotifyEvent> events_;
  Kernel::InotifyEvent event_ = {};
  std::deque<Told> toTell_;
  std::set<int> lost_;  // watches whose end an overflow has swallowed
};

}  // namespace Zorbe::Test::Fuzz
