// SPDX-License-Identifier: MIT
//
// Finds the writers of a directory that spell its path in another way than this command, and so
// hold locks of other names.
#pragma once

#include <brask/platform.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/directory.h"
#include "host/sockets.h"
#include "host/table.h"

namespace Zorbe::Tool {

/// A table whose directory exists.
struct Place {
  std::string name;
  std::string realPath;  ///< empty when `name` leads through no symbolic link
  Identity identity;
};

/// Says in which directory the holder of a lock writes.
class LockFinder {
 public:
  LockFinder(Brask::Platform::DebugHandler& handler, const std::string& base,
             const std::vector<Place>& places);

  /// The directory of the lock `socket`, held by process `holder` (0 when it cannot be seen); none
  /// when it is none of the places. A path counts when its lock has this name; without one, the
  /// directory counts of which the holder maps a table's file for writing.
  std::optional<Identity> directoryOf(const std::string& socket, pid_t holder);

 private:
  struct Lock;

  // A process is looked at once, however many locks it holds.
  struct Holder {
    std::string base;
    std::optional<Identity> written;
  };

  std::optional<Identity> byName(const Lock& lock, const std::vector<std::string>& bases) const;
  const Holder& look(pid_t pid);
  std::optional<Identity> writtenBy(pid_t pid) const;
  std::optional<Identity> check(const Lock& lock, const std::string& path) const;

  Brask::Platform::DebugHandler& handler_;
  std::vector<std::string> bases_;
  std::vector<Place> places_;
  std::multimap<std::string, const Place*> byLast_;  // by the last component of the name
  std::map<pid_t, Holder> holders_;
};

/// The path of the table's directory as its writer spells it, from which the name of the lock
/// follows; `table.path` when the table has no writer, or the spelling is not known.
std::string pathOfLock(Brask::Platform::DebugHandler& handler, const Table& table);

/// True when a process has locked the file `slots` of this directory as the writer of a ready-made
/// table does, in any namespace and under any spelling.
bool isSlotsFileLocked(const std::string& path);

}  // namespace Zorbe::Tool
