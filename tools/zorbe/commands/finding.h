// SPDX-License-Identifier: MIT
//
// The checks of `zorbe doctor`, and their findings.
#pragma once

#include <string>
#include <vector>

#include "commands/commands.h"
#include "host/table.h"

namespace Zorbe::Tool {

enum class Severity { kOk, kNote, kProblem };

struct Finding {
  Severity severity;
  const char* check;  ///< name of the check; part of the interface, scripts select by it
  std::string what;   ///< printable
  std::string fix;    ///< what to do about it, empty when nothing is wrong
};

using Findings = std::vector<Finding>;

/// The base directory exists, and every user can create tables in it.
void checkBase(const Table& base, Findings& findings);

/// The network namespace of the tables' sockets can be entered.
void checkNamespace(const std::string& error, Findings& findings);

/// A further process can watch the directories of all `tables` tables with inotify(7).
void checkInotify(std::size_t tables, Findings& findings);

/// Names, modes, corruption markers and files of every table.
void checkTables(const Survey& survey, Findings& findings);

}  // namespace Zorbe::Tool
