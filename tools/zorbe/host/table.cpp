// SPDX-License-Identifier: MIT
#include "host/table.h"

#include <zorbe/fenix_file.h>
#include <zorbe/root_path.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <system_error>

#include "host/writers.h"

namespace Zorbe::Tool {

namespace {

using Brask::Platform::DebugHandler;

// Opening a FIFO would block, and these files have one line each.
constexpr uint64_t kMaxNoteSize = 65536;

bool isReadable(const Entry* entry) {
  return entry != nullptr && entry->isFile() && entry->size() <= kMaxNoteSize;
}

// The content of a small file without the final line break.
std::string note(DebugHandler& handler, const Table& table, const char* file) {
  if (!isReadable(table.directory.find(file))) return {};
  std::string text = Util::fileRead(handler, table.path + "/" + file, true);
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

Table readTable(DebugHandler& handler, const std::string& name) {
  Table table;
  table.name = name;
  table.path = RootPath(handler, name, false).path;
  table.socket = socketName(table.path);
  table.directory = readListing(handler, table.path);
  table.corrupt = table.directory.find("corruption-detected") != nullptr;
  table.corruption = note(handler, table, "corruption-detected");
  table.lastOwner = note(handler, table, "last-owner");
  if (isReadable(table.directory.find("fenix"))) {
    table.fenix = FenixFile::read(handler, table.path);
  }
  return table;
}

void require(int error, const std::string& path) {
  if (error != 0) throw std::system_error(error, std::generic_category(), path);
}

// A table that is not there is no error, but that it cannot be seen is one.
void requireReachable(DebugHandler& handler, const Table& table) {
  if (table.directory.error != EACCES && table.directory.error != ENOTDIR) return;
  const std::string base = RootPath(handler, "", false).path;
  require(whyUnsearchable(base), base);
  if (table.directory.error == EACCES) require(EACCES, table.path);
}

void walk(DebugHandler& handler, const Table& from, int depth, std::vector<Table>& found) {
  for (const Entry& entry : from.directory.entries) {
    const bool link = S_ISLNK(entry.status.st_mode);
    if (!entry.isDirectory() && !link) continue;
    const std::string name = from.name.empty() ? entry.name : from.name + "/" + entry.name;
    Table table = readTable(handler, name);
    if (!table.directory.present) continue;
    if (!link && depth > 1) walk(handler, table, depth - 1, found);
    found.push_back(std::move(table));
  }
}

// Tables directly below the base directory whose directory was removed while their writer runs.
void addSocketsWithoutDirectory(DebugHandler& handler, const SocketsByName& sockets,
                                Survey& survey) {
  std::set<std::string> known{survey.base.socket.value_or("")};
  for (const Table& table : survey.directories) known.insert(table.socket.value_or(""));
  for (const auto& [socket, ignored] : sockets) {
    const auto name = lastComponent(socket);
    if (known.count(socket) != 0 || !name || name->empty()) continue;
    if (socketName(RootPath(handler, *name, false).path) != socket) continue;
    survey.directories.push_back(readTable(handler, *name));
  }
}

}  // namespace

const char* Writer::state() const {
  if (pids.empty()) return "hidden";
  return stopped ? "stopped" : "alive";
}

bool Table::exists() const {
  if (!sockets.bound.empty() || sockets.connections != 0 || sockets.pending != 0) return true;
  return std::any_of(directory.entries.begin(), directory.entries.end(),
                     [](const Entry& entry) { return entry.ours; });
}

uint64_t Table::storage() const {
  uint64_t sum = 0;
  for (const Entry& entry : directory.entries) {
    if (entry.ours) sum += entry.storage();
  }
  return sum;
}

Table inspect(DebugHandler& handler, const std::string& name) {
  Table table = readTable(handler, name);
  if (!table.directory.present) requireReachable(handler, table);
  addWriters(handler, readSockets(), {&table});
  return table;
}

std::vector<const Table*> Survey::tables() const {
  std::vector<const Table*> found;
  if (base.exists()) found.push_back(&base);
  for (const Table& table : directories) {
    if (table.exists()) found.push_back(&table);
  }
  return found;
}

Survey survey(DebugHandler& handler, BadBase badBase) {
  Survey survey{readTable(handler, ""), {}};
  if (badBase == BadBase::kThrow) require(survey.base.directory.error, survey.base.path);
  walk(handler, survey.base, Survey::kMaxDepth, survey.directories);
  const SocketsByName sockets = readSockets();
  addSocketsWithoutDirectory(handler, sockets, survey);
  std::vector<Table*> all{&survey.base};
  for (Table& table : survey.directories) all.push_back(&table);
  addWriters(handler, sockets, all);
  std::sort(survey.directories.begin(), survey.directories.end(),
            [](const Table& a, const Table& b) { return a.name < b.name; });
  return survey;
}

}  // namespace Zorbe::Tool
