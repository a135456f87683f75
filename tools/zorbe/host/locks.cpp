// SPDX-License-Identifier: MIT
#include "host/locks.h"

#include <fcntl.h>
#include <unistd.h>
#include <zorbe/root_path.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "foundation/unique_fd.h"
#include "host/processes.h"
#include "host/spelling.h"
#include "sockets/abstract_name.h"

namespace Zorbe::Tool {

struct LockFinder::Lock {
  std::string socket;
  std::string last;  // component of the path
};

LockFinder::LockFinder(Brask::Platform::DebugHandler& handler, const std::string& base,
                       const std::vector<Place>& places)
    : handler_(handler), bases_(spellingsOfBase(base)), places_(places) {
  for (const Place& place : places_) {
    byLast_.emplace(baseName(place.name), &place);
    if (!place.realPath.empty()) byLast_.emplace(baseName(place.realPath), &place);
  }
}

std::optional<Identity> LockFinder::directoryOf(const std::string& socket, pid_t pid) {
  const auto last = lastComponent(socket);
  if (!last) return std::nullopt;
  const Lock lock{socket, *last};
  if (const auto found = byName(lock, bases_)) return found;
  if (pid == 0) return std::nullopt;
  const Holder& holder = look(pid);
  if (!holder.base.empty()) {
    if (const auto found = check(lock, holder.base + "/" + lock.last)) return found;
    if (const auto found = byName(lock, {holder.base})) return found;
  }
  return holder.written;
}

const LockFinder::Holder& LockFinder::look(pid_t pid) {
  const auto found = holders_.find(pid);
  if (found != holders_.end()) return found->second;
  return holders_.emplace(pid, Holder{baseOfProcess(handler_, pid), writtenBy(pid)}).first->second;
}

std::optional<Identity> LockFinder::byName(const Lock& lock,
                                           const std::vector<std::string>& bases) const {
  const bool whole = !lock.last.empty() && lock.last != ".";
  const auto begin = whole ? byLast_.lower_bound(lock.last) : byLast_.begin();
  const auto end = whole ? byLast_.upper_bound(lock.last) : byLast_.end();
  for (auto place = begin; place != end; ++place) {
    if (const auto found = check(lock, place->second->realPath)) return found;
    for (const std::string& base : bases) {
      for (const std::string& path : spellingsOfTable(base, place->second->name)) {
        if (const auto found = check(lock, path)) return found;
      }
    }
  }
  return std::nullopt;
}

// The name of a socket has 32 bits of its path's hash: enough to recognise the path.
std::optional<Identity> LockFinder::check(const Lock& lock, const std::string& path) const {
  if (baseName(path) != lock.last || abstractName(path) != lock.socket) return std::nullopt;
  return identityOf(path);
}

std::optional<Identity> LockFinder::writtenBy(pid_t pid) const {
  for (const std::string& path : directoriesWrittenBy(handler_, pid)) {
    const auto identity = identityOf(path);
    const bool known = identity && std::any_of(places_.begin(), places_.end(), [&](const Place& p) {
                         return p.identity == *identity;
                       });
    if (known) return identity;
  }
  return std::nullopt;
}

std::string pathOfLock(Brask::Platform::DebugHandler& handler, const Table& table) {
  if (!table.writer || table.socket == socketName(table.path)) return table.path;
  std::vector<std::string> bases = spellingsOfBase(RootPath(handler, "", false).path);
  if (!table.writer->pids.empty()) {
    bases.push_back(baseOfProcess(handler, table.writer->pids.front()));
  }
  for (const std::string& base : bases) {
    for (const std::string& path : spellingsOfTable(base, table.name)) {
      if (socketName(path) == table.socket) return path;
    }
  }
  return table.path;
}

// A lock for writing is a writer's; readers may share others. Looked at, never taken.
bool isSlotsFileLocked(const std::string& path) {
  const UniqueFd file(
      open((path + "/slots").c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC));
  if (file.get() < 0) return false;  // none, or none that this user may open
  struct flock lock {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(file.get(), F_OFD_GETLK, &lock) != 0) return false;
  return lock.l_type != F_UNLCK;
}

}  // namespace Zorbe::Tool
