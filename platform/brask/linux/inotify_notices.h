// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "brask/linux/inotify_watcher.h"

namespace Brask::Linux {

/// What the kernel does not report, in the order in which it came up. Nothing is taken in the
/// turn in which it was added.
class InotifyNotices {
 public:
  enum class Kind {
    Refusal,  // `what` says why a watch cannot be set
    Removal,  // of the entry `what`
    End,      // of the directory, if there is no other one by now; see InotifyTree
  };
  struct Notice {
    InotifyWatcher* watcher = nullptr;
    Kind kind = Kind::Refusal;
    std::string what;
  };

  bool empty() const { return notices_.empty(); }
  void add(InotifyWatcher& watcher, Kind kind, std::string what);
  void beginTurn() { turn_ = count_; }

  /// The next one from before this turn; false when there is none.
  bool take(Notice& notice);

  enum class Keep { Nothing, Removals };
  void drop(InotifyWatcher& watcher, Keep keep);

 private:
  using Notices = std::map<uint64_t, Notice>;
  Notice extract(Notices::iterator position);

  Notices notices_;
  uint64_t count_ = 0;
  uint64_t turn_ = 0;
};

}  // namespace Brask::Linux
