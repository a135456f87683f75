// SPDX-License-Identifier: MIT
#include "host/writers.h"

#include <zorbe/root_path.h>
#include <zorbe/util.h>

#include <map>
#include <optional>
#include <set>
#include <utility>

#include "host/locks.h"
#include "host/processes.h"
#include "host/spelling.h"

namespace Zorbe::Tool {

namespace {

using Brask::Platform::DebugHandler;
using Holders = std::map<ino_t, std::vector<pid_t>>;
using LocksOfDirectories = std::multimap<Identity, std::string>;

Writer describe(DebugHandler& handler, const std::vector<pid_t>& pids) {
  Writer writer;
  writer.pids = pids;
  if (pids.empty()) return writer;
  writer.executable = Util::readOwner(handler, static_cast<unsigned int>(pids.front()));
  writer.cmdline = Util::readCmdline(handler, pids.front());
  writer.stopped = isStopped(pids.front());
  return writer;
}

bool isHeld(const SocketsByName& sockets, const std::string& name) {
  const auto found = sockets.find(name);
  return found != sockets.end() && !found->second.bound.empty();
}

std::set<ino_t> heldLocks(const SocketsByName& sockets) {
  std::set<ino_t> inodes;
  for (const auto& [name, found] : sockets) {
    if (lastComponent(name)) inodes.insert(found.bound.begin(), found.bound.end());
  }
  return inodes;
}

std::vector<pid_t> holdersOf(const TableSockets& sockets, const Holders& holders) {
  const auto found = sockets.bound.empty() ? holders.end() : holders.find(sockets.bound.front());
  return found == holders.end() ? std::vector<pid_t>{} : found->second;
}

// The locks that are held in the directories of these tables, each under one name or more.
class Locks {
 public:
  Locks(DebugHandler& handler, const SocketsByName& sockets, const std::vector<Table*>& tables)
      : handler_(handler), sockets_(sockets), holders_(findHolders(heldLocks(sockets))) {
    addOwnNames(tables);
    addOtherNames(tables);
  }

  /// Completes a table by its sockets and its writers.
  void addTo(Table& table) const {
    std::vector<std::string> names = namesOf(table);
    if (names.empty()) {
      const auto found = table.socket ? sockets_.find(*table.socket) : sockets_.end();
      if (found != sockets_.end()) table.sockets = found->second;
      return;
    }
    Lock first = lock(names.front());
    table.socket = first.socket;
    table.sockets = first.sockets;
    table.writer = std::move(first.writer);
    for (std::size_t i = 1; i < names.size(); ++i) table.otherWriters.push_back(lock(names[i]));
  }

 private:
  void addOwnNames(const std::vector<Table*>& tables) {
    for (const Table* table : tables) {
      if (!table->socket || !isHeld(sockets_, *table->socket)) continue;
      known_.insert(*table->socket);
      if (table->directory.identity)
        ofDirectories_.emplace(*table->directory.identity, *table->socket);
    }
  }

  // Costs nothing on a host whose locks are all known by their names.
  void addOtherNames(const std::vector<Table*>& tables) {
    std::optional<LockFinder> finder;
    for (const auto& [name, found] : sockets_) {
      if (found.bound.empty() || known_.count(name) != 0 || !lastComponent(name)) continue;
      if (!finder) finder.emplace(handler_, RootPath(handler_, "", false).path, placesOf(tables));
      const auto pids = holdersOf(found, holders_);
      const auto identity = finder->directoryOf(name, pids.empty() ? 0 : pids.front());
      if (identity) ofDirectories_.emplace(*identity, name);
    }
  }

  static std::vector<Place> placesOf(const std::vector<Table*>& tables) {
    std::vector<Place> places;
    for (const Table* table : tables) {
      if (!table->directory.identity) continue;
      const bool roundabout = table->directory.link || table->name.find("..") != std::string::npos;
      places.push_back(
          {table->name, roundabout ? realPath(table->path) : "", *table->directory.identity});
    }
    return places;
  }

  // That of its own path first.
  std::vector<std::string> namesOf(const Table& table) const {
    std::vector<std::string> names;
    if (table.socket && isHeld(sockets_, *table.socket)) names.push_back(*table.socket);
    if (!table.directory.identity) return names;
    const auto [begin, end] = ofDirectories_.equal_range(*table.directory.identity);
    for (auto found = begin; found != end; ++found) {
      if (names.empty() || found->second != names.front()) names.push_back(found->second);
    }
    return names;
  }

  Lock lock(const std::string& name) const {
    const TableSockets& sockets = sockets_.at(name);
    return {name, sockets, describe(handler_, holdersOf(sockets, holders_))};
  }

  DebugHandler& handler_;
  const SocketsByName& sockets_;
  Holders holders_;
  std::set<std::string> known_;
  LocksOfDirectories ofDirectories_;
};

}  // namespace

void addWriters(DebugHandler& handler, const SocketsByName& sockets,
                const std::vector<Table*>& tables) {
  const Locks locks(handler, sockets, tables);
  for (Table* table : tables) locks.addTo(*table);
}

}  // namespace Zorbe::Tool
