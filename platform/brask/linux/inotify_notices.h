// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "brask/linux/inotify_watcher.h"

namespace Brask::Linux {

/// What the loop itself reports to watchers, in order. A notice is delivered in a later turn
/// than the one that added it.
class InotifyNotices {
 public:
  enum class Kind {
    kRefusal,  // `what` says why a watch cannot be set
    kRemoval,  // of the entry `what`
    kEnd,      // of the directory, unless its path leads to another one by then; see InotifyTree
  };
  struct Notice {
    InotifyWatcher* watcher = nullptr;
    Kind kind = Kind::kRefusal;
    std::string what;
  };

  bool empty() const { return notices_.empty(); }
  void add(InotifyWatcher& watcher, Kind kind, std::string what);
  void beginTurn() { turn_ = count_; }

  /// The next one that was added before this turn; false when there is none.
  bool take(Notice& notice);

  /// None of the watcher's is taken any more, except those of the kind `kept`.
  void drop(InotifyWatcher& watcher, std::optional<Kind> kept = std::nullopt);

 private:
  using Notices = std::map<uint64_t, Notice>;
  Notice extract(Notices::iterator position);

  Notices notices_;
  uint64_t count_ = 0;
  uint64_t turn_ = 0;
};

}  // namespace Brask::Linux
