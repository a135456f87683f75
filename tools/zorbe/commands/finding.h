// SPDX-License-Identifier: MIT
//
// The checks of `zorbe doctor`, and their findings.
#pragma once

#include <string>
#include <vector>

#include "commands/commands.h"
#include "host/table.h"

namespace Zorbe::Tool {

enum class Severity { kOk, kNote, kProblem, kCritical };

struct Finding {
  Severity severity;
  const char* check;  ///< name of the check; part of the interface, scripts select by it
  std::string what;   ///< printable
  std::string fix;    ///< what to do about it, empty when nothing is wrong
  std::vector<std::string> subjects = {};  ///< the paths or tables that a finding sums up
};

using Findings = std::vector<Finding>;
using Tables = std::vector<const Table*>;

/// The base directory exists, and every user can create tables in it.
void checkBase(const Table& base, Findings& findings);

/// The base directory is in memory.
void checkStorage(const Table& base, Findings& findings);

/// The network namespace of the tables' sockets can be entered.
void checkNamespace(const std::string& error, Findings& findings);

/// A further process can watch the directories of all `tables` tables with inotify(7).
void checkInotify(std::size_t tables, Findings& findings);

/// Names, directories, files, incarnation ids and corruption markers of tables.
void checkTables(Handler& handler, const Tables& tables, Findings& findings);

/// Modes that keep other users out of tables, in one finding for all directories and one for all
/// files.
void checkModes(const Tables& tables, Findings& findings);

/// Each table has one writer, which accepts readers.
void checkWriters(const Tables& tables, Findings& findings);

/// A command line that removes the table, for any environment.
std::string removalOf(const Table& table);

/// The first few of these words, and how many more there are.
std::string enumerated(const std::vector<std::string>& words);

}  // namespace Zorbe::Tool
