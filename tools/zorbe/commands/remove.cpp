// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <unistd.h>
#include <zorbe/root_path.h>
#include <zorbe/util.h>

#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "commands/commands.h"
#include "foundation/unique_fd.h"
#include "host/locks.h"
#include "host/spelling.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

/// Why a table is not removed. A result, not a failure.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// This process may hold locks of the table itself.
void requireNoWriter(Handler& handler, const std::string& name) {
  const Table table = inspect(handler, name);
  std::vector<Lock> locks = table.otherWriters;
  if (table.writer) locks.insert(locks.begin(), {*table.socket, table.sockets, *table.writer});
  for (const Lock& lock : locks) {
    if (lock.writer.pids == std::vector<pid_t>{getpid()}) continue;
    throw Refusal("its writer is " + describe(lock.writer) +
                  (lock.socket == socketName(table.path)
                       ? ""
                       : ", which spells the directory in another way: " + printable(lock.socket)));
  }
  if (isSlotsFileLocked(table.path)) {
    throw Refusal("a process that writes it has locked its file slots: see lslocks(8)");
  }
}

// While it exists, no process can become the writer under a usual spelling of the directory.
// Nothing is written, so that a table that is not removed stays as it was.
class WriterLocks {
 public:
  WriterLocks(Handler& handler, const RootPath& root) {
    const std::string base = RootPath(handler, "", false).path;
    std::set<std::string> names;
    for (const std::string& spelled : spellingsOfBase(base)) {
      for (const std::string& path : spellingsOfTable(spelled, root.name)) {
        const auto name = socketName(path);
        if (name && names.insert(*name).second) bind(handler, root.name, path);
      }
    }
  }

 private:
  void bind(Handler& handler, const std::string& name, const std::string& path) {
    const SocketAddress address = addressOfPath(handler, path);
    sockets_.emplace_back(Util::socket(handler, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (sockets_.back().get() < 0)
      throw std::system_error(errno, std::generic_category(), "socket");
    if (::bind(sockets_.back().get(), reinterpret_cast<const sockaddr*>(&address.bytes),
               address.length) == 0) {
      return;
    }
    const int error = errno;
    if (error != EADDRINUSE) throw std::system_error(error, std::generic_category(), "bind");
    requireNoWriter(handler, name);
    throw Refusal("another process held its writer lock until now");
  }

  std::vector<UniqueFd> sockets_;
};

std::string describeForeign(const RootPath& root, const Entry& entry) {
  const std::string path = word(root.fullPath(entry.name));
  return entry.ours ? path + " is a " + entry.kind() + ", not a file of the table"
                    : path + " does not belong to the table";
}

Listing requireOnlyTableFiles(Handler& handler, const RootPath& root) {
  Listing listing = readListing(handler, root.path);
  if (listing.error != 0) {
    throw std::system_error(listing.error, std::generic_category(), root.path);
  }
  if (listing.link) throw Refusal(word(root.path) + " is a symbolic link");
  for (const Entry& entry : listing.entries) {
    if (!entry.ours || entry.isDirectory()) throw Refusal(describeForeign(root, entry));
  }
  return listing;
}

void throwFailures(Handler& handler) {
  const auto failures = handler.takeFailures();
  if (!failures.empty()) throw std::runtime_error(failures.front());
}

// Returns the names of the removed files.
Json removeHoldingLocks(Handler& handler, RootPath& root) {
  static_cast<void>(requireOnlyTableFiles(handler, root));
  requireNoWriter(handler, root.name);
  const WriterLocks locks(handler, root);
  requireNoWriter(handler, root.name);  // one that has another spelling, and started meanwhile
  const Listing listing = requireOnlyTableFiles(handler, root);
  static_cast<void>(handler.takeFailures());  // of reading what is removed now
  for (const Entry& entry : listing.entries) root.removeFile(entry.name);
  throwFailures(handler);
  root.cleanup();
  throwFailures(handler);
  Json removed = Json::array();
  for (const Entry& entry : listing.entries) removed.push_back(utf8(entry.name));
  return removed;
}

int report(const Context& context, const std::string& name, const std::string& refusal,
           const Json& files) {
  if (context.json) {
    print({{"name", utf8(name)},
           {"removed", refusal.empty()},
           {"reason", refusal.empty() ? Json() : Json(refusal)},
           {"files", files}});
  } else if (refusal.empty()) {
    std::cout << word(name) << ": removed, with " << counted(files.size(), "file") << '\n';
  } else {
    std::cerr << "zorbe: " << word(name) << " is not removed: " << refusal << '\n';
  }
  return refusal.empty() ? kYes : kNo;
}

}  // namespace

int remove(Context& context, const std::string& name) {
  RootPath root(context.handler, name, false);
  if (!inspect(context.handler, name).directory.present)
    return report(context, name, "there is no " + word(root.path), Json::array());
  try {
    return report(context, name, "", removeHoldingLocks(context.handler, root));
  } catch (const Refusal& refusal) {
    return report(context, name, refusal.what(), Json::array());
  }
}

}  // namespace Zorbe::Tool
