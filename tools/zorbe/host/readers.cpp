// SPDX-License-Identifier: MIT
#include "host/readers.h"

#include <zorbe/util.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <system_error>
#include <tuple>

#include "host/connections.h"
#include "host/processes.h"

namespace Zorbe::Tool {

namespace {

using Brask::Platform::DebugHandler;
using Zorbe::Table::Peer;
using Zorbe::Table::PeerState;

struct End {
  Connection connection;
  std::vector<pid_t> pids;
  bool taken = false;  // by a peer in the header
};

// The numbers of a process in its PID namespaces, from ours to its own: see proc(5).
std::set<pid_t> numbersOf(pid_t pid) {
  std::set<pid_t> numbers{pid};
  std::ifstream file("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("NSpid:", 0) != 0) continue;
    std::istringstream words(line.substr(6));
    for (pid_t number = 0; words >> number;) numbers.insert(number);
  }
  return numbers;
}

std::vector<End> endsOf(const Table& table, std::string& problem) {
  std::vector<End> ends;
  try {
    const Connections all = readConnections();
    const auto found = all.find(table.socket.value_or(""));
    if (found == all.end()) return ends;
    std::set<ino_t> sockets;
    for (const Connection& connection : found->second) sockets.insert(connection.socket);
    sockets.erase(0);
    const auto holders = findHolders(sockets);
    for (const Connection& connection : found->second) {
      const auto pids = holders.find(connection.socket);
      ends.push_back({connection, pids == holders.end() ? std::vector<pid_t>{} : pids->second});
    }
  } catch (const std::system_error& failure) {
    problem = failure.what();
  }
  return ends;
}

bool holds(const End& end, pid_t pid) {
  return std::find(end.pids.begin(), end.pids.end(), pid) != end.pids.end();
}

// In a container the writer knows its readers by other numbers than this process.
bool holdsInNamespace(const End& end, pid_t pid) {
  return std::any_of(end.pids.begin(), end.pids.end(),
                     [pid](pid_t holder) { return numbersOf(holder).count(pid) != 0; });
}

ReaderState stateOf(PeerState state) {
  if (state == PeerState::behind) return ReaderState::kBehind;
  return state == PeerState::asleep ? ReaderState::kAsleep : ReaderState::kWatcher;
}

ReaderRow rowOf(const TableHeader& header, const Peer& peer) {
  ReaderRow row;
  row.state = stateOf(peer.state);
  if (peer.pid != 0) row.pid = static_cast<pid_t>(peer.pid);  // 0: outside of the writer's PIDs
  row.uid = peer.uid;
  row.sinceSeconds = secondsIn(header, peer);
  if (peer.state == PeerState::watcher) return row;
  row.reported = peer.reported;
  row.lagRecords = lagOf(header, peer);
  return row;
}

void join(ReaderRow& row, End& end) {
  end.taken = true;
  row.pids = end.pids;
  if (end.connection.uid) row.uid = end.connection.uid;
  if (!row.pid || !holds(end, *row.pid)) row.pid = end.pids.front();
}

// A writer in a container knows readers outside of it by no number. One of them is the connection
// that no other row has, if there is only one.
void joinUnnumbered(std::vector<ReaderRow>& rows, std::vector<End>& ends) {
  const auto isUnnumbered = [](const ReaderRow& row) { return !row.pid; };
  const auto isFree = [](const End& end) {
    return !end.taken && !end.connection.pending && !end.pids.empty();
  };
  if (std::count_if(rows.begin(), rows.end(), isUnnumbered) != 1) return;
  if (std::count_if(ends.begin(), ends.end(), isFree) != 1) return;
  join(*std::find_if(rows.begin(), rows.end(), isUnnumbered),
       *std::find_if(ends.begin(), ends.end(), isFree));
}

// Rows of the header with the connection of the same process, each connection once.
std::vector<ReaderRow> listedRows(const TableHeader& header, std::vector<End>& ends) {
  std::vector<ReaderRow> rows;
  for (const Peer& peer : header.readers.peers) rows.push_back(rowOf(header, peer));
  for (const auto matches : {holds, holdsInNamespace}) {
    for (ReaderRow& row : rows) {
      if (!row.pids.empty()) continue;
      const auto end = std::find_if(ends.begin(), ends.end(), [&](const End& each) {
        return !each.taken && !each.connection.pending && row.pid && matches(each, *row.pid);
      });
      if (end != ends.end()) join(row, *end);
    }
  }
  joinUnnumbered(rows, ends);
  return rows;
}

ReaderRow rowOf(const End& end) {
  ReaderRow row;
  row.state = end.connection.pending ? ReaderState::kPending : ReaderState::kConnected;
  row.pids = end.pids;
  row.uid = end.connection.uid;
  if (!end.pids.empty()) row.pid = end.pids.front();
  return row;
}

// Connections that the header does not list: of another kind of table, or accepted since the
// writer has looked, or too many. Those of which no process can be seen may be listed, and count
// as such as long as there are rows without a process.
void addUnlisted(std::vector<ReaderRow>& rows, const std::vector<End>& ends) {
  auto unmatched = std::count_if(rows.begin(), rows.end(),
                                 [](const ReaderRow& row) { return row.pids.empty(); });
  for (const End& end : ends) {
    if (end.taken) continue;
    if (!end.connection.pending && unmatched-- > 0) continue;
    rows.push_back(rowOf(end));
  }
}

void describe(DebugHandler& handler, ReaderRow& row) {
  if (row.pids.empty()) return;
  row.executable = Util::readOwner(handler, static_cast<unsigned int>(*row.pid));
  row.cmdline = Util::readCmdline(handler, *row.pid);
  row.stopped = isStopped(*row.pid);
}

bool isBefore(const ReaderRow& a, const ReaderRow& b) {
  const auto order = [](const ReaderRow& row) {
    return std::make_tuple(row.state, ~row.lagRecords.value_or(0), row.pid.value_or(0));
  };
  return order(a) < order(b);
}

}  // namespace

const char* word(ReaderState state) {
  switch (state) {
    case ReaderState::kBehind:
      return "behind";
    case ReaderState::kAsleep:
      return "asleep";
    case ReaderState::kWatcher:
      return "watcher";
    case ReaderState::kConnected:
      return "connected";
    case ReaderState::kPending:
      break;
  }
  return "pending";
}

ReaderList findReaders(DebugHandler& handler, const Table& table,
                       const std::optional<TableHeader>& header) {
  ReaderList list;
  std::vector<End> ends = endsOf(table, list.problem);
  if (header && isServed(table)) list.rows = listedRows(*header, ends);
  addUnlisted(list.rows, ends);
  for (ReaderRow& row : list.rows) describe(handler, row);
  std::stable_sort(list.rows.begin(), list.rows.end(), isBefore);
  return list;
}

}  // namespace Zorbe::Tool
